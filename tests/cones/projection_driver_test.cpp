// The projection onto the dual cone: the zero, non-negative and second-order blocks and
// their edge cases, the row order over all block kinds, the Moreau decomposition of
// every family, the failure of a semidefinite block, no allocation, and the time kept.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <string>

#include "cone_checks.h"
#include "support/capture.h"

using namespace korvex;

namespace {

using V = std::vector<double>;

// x projected by the driver for cone, with a workspace of its own.
V projected(const ConeFixture& f, V x) {
    ConeWorkOwner work(initCone(&f.cone));
    EXPECT_EQ(projectToDualCone(x.data(), &f.cone, work.get()), 0);
    return x;
}

TEST(ProjectionDriver, ZeroNonNegativeAndSecondOrderBlocks) {
    // Zero rows are neither read nor written (NaN included); linear rows clip at 0.
    const V zero = projected(ConeFixture(2, 3, {}, {}, 0, 0, {}), {-1, std::nan(""), -2, 0, 3});
    EXPECT_TRUE(zero[0] == -1 && std::isnan(zero[1]));
    EXPECT_EQ(V(zero.begin() + 2, zero.end()), (V{0, 0, 3}));

    const struct {
        std::vector<int> sizes;
        V in, out;
    } rows[] = {
        {{0, 1, 0, 1}, {-2, 5}, {0, 5}},  // length 0 takes no row; length 1 clips
        {{3}, {5, 3, 4}, {5, 3, 4}},      // t = |z|: in the cone
        {{3}, {-5, 3, 4}, {0, 0, 0}},     // t = -|z|: in the polar cone
        {{3}, {-1, 0, 0}, {0, 0, 0}},     // z = 0, t < 0
        {{3}, {0, 0, 0}, {0, 0, 0}},      // z = 0, t = 0
        {{3}, {0, 3, 4}, {2.5, 1.5, 2}},  // h = (5 + 0)/2, z scaled by h/5
        {{2, 3}, {-1, 2, 0.5, 0, 0.5}, {0.5, 0.5, 0.5, 0, 0.5}},  // then on the boundary
    };
    for (const auto& row : rows) EXPECT_EQ(projected(ConeFixture(0, 0, row.sizes, {}, 0, 0, {}), row.in), row.out);
}

TEST(ProjectionDriver, EachBlockGoesToItsRoutineInRowOrder) {
    // One block of every kind at once gives, row for row, what records of one kind each
    // give on their own slices.
    const ConeFixture f(1, 2, {3, 0, 1}, {2, 3}, 1, 1, {0.3, -0.6, 0.0});
    Sampler rng(4301);
    const V x = rng.normals(coneTotalSize(&f.cone), 2.0);
    const V got = projected(f, x);
    const ConeFixture zero(1, 0, {}, {}, 0, 0, {}), linear(0, 2, {}, {}, 0, 0, {}), soc(0, 0, {3, 0, 1}, {}, 0, 0, {}),
        sd(0, 0, {}, {2, 3}, 0, 0, {}), primal_exp(0, 0, {}, {}, 1, 0, {}), dual_exp(0, 0, {}, {}, 0, 1, {}),
        power(0, 0, {}, {}, 0, 0, {0.3, -0.6, 0.0});
    V want;
    for (const ConeFixture* part : {&zero, &linear, &soc, &sd, &primal_exp, &dual_exp, &power}) {
        const auto from = x.begin() + static_cast<std::ptrdiff_t>(want.size());
        const V slice = projected(*part, V(from, from + coneTotalSize(&part->cone)));
        want.insert(want.end(), slice.begin(), slice.end());
    }
    EXPECT_EQ(got, want);

    // A primal exponential triple goes through x + P(-x); an exponent of exactly 0 is a
    // dual block of exponent 0.
    const int exp_row = 1 + 2 + 4 + 3 + 6, zero_exponent_row = exp_row + 12;
    double m[3] = {-x[exp_row], -x[exp_row + 1], -x[exp_row + 2]};
    double z[3] = {x[zero_exponent_row], x[zero_exponent_row + 1], x[zero_exponent_row + 2]};
    projectExpTriple(m);
    projectPowerTriple(z, 0.0);
    for (int j = 0; j < 3; ++j) {
        EXPECT_EQ(got[exp_row + j], x[exp_row + j] + m[j]);
        EXPECT_EQ(got[zero_exponent_row + j], z[j]);
    }
}

// One block of a family: its rows, and how far a slice of them lies from the target cone
// C and from its dual C*.
struct Block {
    int rows;
    std::function<double(const double*)> gap_target, gap_dual;
};

// The Moreau decomposition v = P_C(v) - P_C*(-v), with P_C from the driver on target and
// P_C* on dual: both parts in their cones and orthogonal, which is also the optimality
// condition of each projection. Then P_C is idempotent, and P_C(v) is no farther from v
// than other points of C: projections of other vectors (in C by the first check), their
// sums with P_C(v), and the multiples of P_C(v).
void checkMoreau(const char* name, const ConeFixture& target, const ConeFixture& dual, const std::vector<Block>& blocks,
                 double tolerance, Sampler& rng, int trials) {
    const int m = coneTotalSize(&target.cone);
    ConeWorkOwner work(initCone(&target.cone)), dual_work(initCone(&dual.cone));
    ASSERT_TRUE(work && dual_work);
    auto project = [&](V x, const ConeFixture& f, ConeWork* w) {
        EXPECT_EQ(projectToDualCone(x.data(), &f.cone, w), 0);
        return x;
    };
    auto gap = [&blocks](const V& x, bool of_target) {
        double sum = 0.0;
        for (std::size_t b = 0, at = 0; b < blocks.size(); at += blocks[b].rows, ++b) {
            sum += (of_target ? blocks[b].gap_target : blocks[b].gap_dual)(x.data() + at);
        }
        return sum;
    };
    for (int trial = 0; trial < trials; ++trial) {
        const V v = rng.normals(m, std::pow(4.0, trial % 3));
        const double tol = tolerance * (1 + norm(v));
        V minus_v(m), moved(m);
        for (int k = 0; k < m; ++k) minus_v[k] = -v[k];
        const V p = project(v, target, work.get()), d = project(minus_v, dual, dual_work.get());
        SCOPED_TRACE(testing::Message() << name << " m = " << m << " trial " << trial);

        EXPECT_LE(gap(p, true), tol);
        EXPECT_LE(gap(d, false), tol);
        for (int k = 0; k < m; ++k) EXPECT_NEAR(p[k] - d[k], v[k], tol) << "row " << k;
        EXPECT_LE(std::fabs(dot(p, d)), tol * (1 + norm(v)));
        EXPECT_LE(distance(project(p, target, work.get()), p), tol);

        const double nearest = distance(v, p);
        for (int k = 0; k < 10; ++k) {
            const V q = project(rng.normals(m, 3.0), target, work.get());
            const double step = k < 8 ? 1e-2 : 0.0, scale = k == 8 ? 0.99 : k == 9 ? 1.01 : 1.0;
            for (int j = 0; j < m; ++j) moved[j] = scale * p[j] + step * q[j];
            EXPECT_LE(nearest, distance(v, q) + tol);
            EXPECT_LE(nearest, distance(v, moved) + tol);
        }
    }
}

TEST(ProjectionDriver, MoreauDecompositionOfEveryFamily) {
    Sampler rng(4302);
    const std::vector<int> counts = {0, 1, 2, 3, 4, 5, 6, 40}, sides = {0, 1, 2, 3, 4, 5, 6, 10, 30};
    const Block ray = {1, [](const double* x) { return negativePart(*x); }, [](const double* x) { return negativePart(*x); }};
    // Primal exponential blocks project onto K*, dual ones onto K.
    const Block exponential = {3, dualExpConeGap, expConeGap};

    std::vector<Block> second_order, semidefinite;
    for (int k : counts) {
        auto gap = [k](const double* x) { return secondOrderGap(x, k); };
        second_order.push_back({k, gap, gap});
    }
    for (int n : sides) {
        auto gap = [n](const double* x) { return n > 0 ? negativePart(symmetricEigen(x, n).front()) : 0.0; };
        semidefinite.push_back({n * (n + 1) / 2, gap, gap});
    }
    const ConeFixture soc(0, 0, counts, {}, 0, 0, {}), sd(0, 0, {}, sides, 0, 0, {});
    checkMoreau("second-order", soc, soc, second_order, 1e-14, rng, 24);
    // dsyevr locates each eigenvalue to the absolute tolerance 1e-8.
    checkMoreau("semidefinite", sd, sd, semidefinite, 1e-7, rng, 9);

    for (int n : counts) {
        const ConeFixture linear(0, n, {}, {}, 0, 0, {});
        checkMoreau("non-negative", linear, linear, std::vector<Block>(n, ray), 1e-14, rng, 12);

        const ConeFixture primal_exp(0, 0, {}, {}, n, 0, {}), dual_exp(0, 0, {}, {}, 0, n, {});
        checkMoreau("exponential", primal_exp, dual_exp, std::vector<Block>(n, exponential), 1e-5, rng, 24);

        // Exponents in (0, 1], 1 among them, and 0, whose cone K_0 = {x >= 0, y >= |z|}
        // is self-dual. Exponent a projects onto K_a*, and -a onto K_a.
        V exponents(n), negated(n);
        std::vector<Block> power;
        for (int k = 0; k < n; ++k) {
            const double a = k == 3 ? 0.0 : k == 5 ? 1.0 : rng.uniform(0.05, 0.95);
            exponents[k] = a;
            negated[k] = -a;
            power.push_back({3, [a](const double* x) { return a > 0 ? dualPowerConeGap(x, a) : powerConeGap(x, 0.0); },
                             [a](const double* x) { return powerConeGap(x, a); }});
        }
        const ConeFixture primal_power(0, 0, {}, {}, 0, 0, exponents), dual_power(0, 0, {}, {}, 0, 0, negated);
        checkMoreau("power", primal_power, dual_power, power, 1e-7, rng, 24);
    }
}

TEST(ProjectionDriver, FailingSemidefiniteBlockLeavesTheLaterRows) {
    // The first semidefinite block fails (a workspace length of 1 is an illegal argument
    // to dsyevr, info = -18, and OpenBLAS's xerbla says so on stdout): the driver returns
    // -1 at once with the rows before it projected, that block and every later row as
    // they came, and no time added.
    const ConeFixture f(1, 2, {3}, {3, 3}, 1, 1, {0.5});
    ConeWorkOwner work(initCone(&f.cone));
    ASSERT_NE(work, nullptr);
    work->eig_work_len = 1;
    work->projection_time_ms = 4.25;
    Sampler rng(4303);
    const V x = rng.normals(coneTotalSize(&f.cone), 3.0);
    V p = x;
    CapturedOutput out;
    EXPECT_EQ(projectToDualCone(p.data(), &f.cone, work.get()), -1);
    EXPECT_NE(out.finish().find("DSYEVR parameter number 18"), std::string::npos);
    EXPECT_EQ(work->projection_time_ms, 4.25);

    const auto first = x.begin() + 1 + 2 + 3;
    EXPECT_EQ(V(p.begin(), p.begin() + 6), projected(ConeFixture(1, 2, {3}, {}, 0, 0, {}), V(x.begin(), first)));
    EXPECT_EQ(V(p.begin() + 6, p.end()), V(first, x.end()));
}

TEST(ProjectionDriver, AllocatesNothingAndKeepsItsTime) {
    const ConeFixture f(3, 4, {0, 1, 5}, {1, 2, 30, 3}, 2, 2, {0.4, -0.4, 0.0}), zeros(4, 0, {}, {}, 0, 0, {});
    ConeWorkOwner work(initCone(&f.cone)), zero_work(initCone(&zeros.cone));
    ASSERT_TRUE(work && zero_work);
    Sampler rng(4304);
    V x = rng.normals(coneTotalSize(&f.cone)), z = {1, -2, 3, -4};
    work->projection_time_ms = 7.0;
    zero_work->projection_time_ms = 1.0;

    failAllocationAt(0);  // resets the count
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(projectToDualCone(x.data(), &f.cone, work.get()), 0);
    const double outer_ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    ASSERT_EQ(projectToDualCone(z.data(), &zeros.cone, zero_work.get()), 0);
    EXPECT_EQ(allocationCount(), 0);

    // Milliseconds, added to what was there: within the time measured around the call,
    // and not a thousandth of it (seconds) either.
    const double added = work->projection_time_ms - 7.0;
    EXPECT_GT(added, outer_ms / 100);
    EXPECT_LE(added, outer_ms);
    // Zero rows alone are left as they are, and the time is still added.
    EXPECT_EQ(z, (V{1, -2, 3, -4}));
    EXPECT_GT(zero_work->projection_time_ms, 1.0);
}

}  // namespace
