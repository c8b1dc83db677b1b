// The projection of one block: the semidefinite closed forms of sides 1 and 2 with the
// off-diagonal threshold and the partial decomposition against LAPACK's full dsyev, and
// the exponential and power triples at their exact edge cases. Optimality on random
// triples is checked with the driver's family properties; a failing dsyevr there too.
#include <gtest/gtest.h>

#include <cmath>

#include "cone_checks.h"

using namespace korvex;

namespace {

using V = std::vector<double>;

double maxDifference(const V& a, const V& b) {
    double worst = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k) worst = std::max(worst, std::fabs(a[k] - b[k]));
    return worst;
}

V semidefinite(V x, int n, ConeWork* work = nullptr) {
    EXPECT_EQ(projectSemidefiniteBlock(x.data(), n, work), 0);
    return x;
}
V exponential(V v) {
    projectExpTriple(v.data());
    return v;
}
V power(V v, double a) {
    projectPowerTriple(v.data(), a);
    return v;
}

TEST(SemidefiniteBlock, SmallSidesInClosedForm) {
    EXPECT_EQ(semidefinite({-7}, 0), V{-7});  // side 0 takes no entry
    EXPECT_EQ(semidefinite({-2}, 1), V{0});
    EXPECT_EQ(semidefinite({3}, 1), V{3});
    // Side 2, packed (a, sqrt(2) b, d): below |b| = 1e-6 the off-diagonal is dropped, even
    // from a positive definite matrix; from 1e-6 on a semidefinite one stays bit for bit.
    const double below = 0.99e-6 * std::sqrt(2.0), above = 1.01e-6 * std::sqrt(2.0);
    EXPECT_EQ(semidefinite({2, below, 3}, 2), (V{2, 0, 3}));
    EXPECT_EQ(semidefinite({-1, -below, 3}, 2), (V{0, 0, 3}));
    EXPECT_EQ(semidefinite({2, above, 3}, 2), (V{2, above, 3}));
    EXPECT_EQ(semidefinite({2, -above, 3}, 2), (V{2, -above, 3}));
    EXPECT_EQ(semidefinite({-2, 1, -3}, 2), (V{0, 0, 0}));  // negative definite
    // One positive eigenvalue: the rank-one closed form against the full decomposition.
    Sampler rng(4201);
    for (int k = 0; k < 500; ++k) {
        const V x = rng.normals(3, 2.0);
        EXPECT_LE(maxDifference(semidefinite(x, 2), semidefiniteReference(x.data(), 2)), 1e-12 * (1 + norm(x)));
    }
}

TEST(SemidefiniteBlock, MatchesTheFullDecomposition) {
    // One workspace sized for the largest side serves all, largest first: a smaller block
    // uses the leading n x n part of the arrays, with leading dimension n. dsyevr locates
    // each eigenvalue to the absolute tolerance 1e-8, which bounds the agreement.
    const std::vector<int> sides = {30, 10, 6, 5, 4, 3};
    ConeFixture f(0, 0, {}, sides, 0, 0, {});
    ConeWorkOwner work(initCone(&f.cone));
    ASSERT_NE(work, nullptr);
    Sampler rng(4202);
    for (int n : sides) {
        // The zero matrix: the bound is 0.01, nothing is found, and it stays zero.
        const V zero(n * (n + 1) / 2, 0.0);
        EXPECT_EQ(semidefinite(zero, n, work.get()), zero);
        // Random symmetric matrices shifted so that the count of positive eigenvalues runs
        // from none (the result is then exactly 0) to all.
        for (int trial = 0; trial < 12; ++trial) {
            V x = rng.normals(n * (n + 1) / 2);
            const double shift = (trial % 6 - 2.5) * std::sqrt(static_cast<double>(n));
            for (int j = 0; j < n; ++j) x[j * n - j * (j - 1) / 2] += shift;
            const V p = semidefinite(x, n, work.get());
            SCOPED_TRACE(testing::Message() << "side " << n << " shift " << shift);
            EXPECT_LE(maxDifference(p, semidefiniteReference(x.data(), n)), 1e-8 * (1 + norm(x)));
            EXPECT_TRUE(symmetricEigen(x.data(), n).back() >= 0.0 || p == zero);
        }
    }
}

TEST(ExpTriple, EdgeCasesStandExactly) {
    const std::pair<V, V> rows[] = {
        {{0, 0, 0}, {0, 0, 0}},      // edge of the cone
        {{0, 0, 1}, {0, 0, 1}},      // edge of the cone
        {{-1, 0, 1}, {-1, 0, 1}},    // edge of the cone
        {{0, -1, -1}, {0, 0, 0}},    // edge of the polar cone
        {{1, -1, -1}, {0, 0, 0}},    // inside the polar cone
        {{1, 0, -0.5}, {0, 0, 0}},   // inside it by the factor e alone: 1 - 0.5 e < 0 < 1 - 0.5
        {{-1, -1, 2}, {-1, 0, 2}},   // r < 0, s < 0: onto the edge
        {{-1, -1, -2}, {-1, 0, 0}},  // r is never clipped
        {{0, 1, 1 - 5e-7}, {0, 1, 1 - 5e-7}},  // misses the cone by less than the slack 1e-6
    };
    for (const auto& [in, out] : rows) EXPECT_EQ(exponential(in), out) << in[0] << ", " << in[1] << ", " << in[2];
    EXPECT_NE(exponential({0, 1, 1 - 2e-6})[2], 1 - 2e-6);  // twice the slack is too far: it moves
    // (-1, 0, -1) misses the edge (t < 0) and goes to the search, whose answer is the
    // candidate of the last multiplier: s = 0, t = 0 and r = -1 - rho with rho < 1e-8.
    const V w = exponential({-1, 0, -1});
    EXPECT_TRUE(w[1] == 0.0 && w[2] == 0.0 && w[0] < -1.0 && w[0] > -1.0 - 1e-8) << w[0];

    // Near 1e9 the spacing of doubles exceeds the bracket width 1e-8: the doubling stage
    // runs uncapped and then all 100 bisection steps; the result is still optimal to the
    // relative accuracy of the arithmetic: p in K, p - v in K* and <p, p - v> = 0.
    for (const V& v : {V{1e9, 2e9, 1e9}, V{-3e9, 1e9, -2e9}, V{2e9, -1e9, 5e9}}) {
        const V p = exponential(v), d = {p[0] - v[0], p[1] - v[1], p[2] - v[2]};
        EXPECT_LE(expConeGap(p.data()), 1e3);
        EXPECT_LE(dualExpConeGap(d.data()), 1e3);
        EXPECT_LE(std::fabs(dot(p, d)), 1e3 * 1e10);
    }
}

TEST(PowerTriple, DirectCasesTheFlooredIterateAndTheMirrorInZ) {
    EXPECT_EQ(power({0, 0, 0}, 0.3), (V{0, 0, 0}));
    // 4^0.5 1^0.5 = 2 misses |z| by less than the slack 1e-6: unchanged, sign kept.
    EXPECT_EQ(power({4, 1, 2 + 5e-7}, 0.5), (V{4, 1, 2 + 5e-7}));
    EXPECT_EQ(power({4, 1, -(2 + 5e-7)}, 0.5), (V{4, 1, -(2 + 5e-7)}));
    EXPECT_NE(power({4, 1, 2 + 2e-6}, 0.5)[2], 2 + 2e-6);
    // (-x/a)^a (-y/b)^b = 2: |z| = 1.9 lies in the polar cone and projects to 0, 2.1 not.
    EXPECT_EQ(power({-1, -1, 1.9}, 0.5), (V{0, 0, 0}));
    EXPECT_NE(power({-1, -1, 2.1}, 0.5), (V{0, 0, 0}));
    // (-1, 2, 0): the iterate stays at zh = 0 with xh on its floor, the residual never
    // drops below 1e-8, all 20 steps run, and the floor 1e-12 is the first entry.
    EXPECT_EQ(power({-1, 2, 0}, 0.5), (V{1e-12, 2, 0}));

    // The mirror image in z changes only the sign of z.
    Sampler rng(4102);
    for (int k = 0; k < 500; ++k) {
        const double a = rng.uniform(0.0, 1.0);
        const V v = rng.normals(3, 3.0), p = power(v, a);
        EXPECT_EQ(power({v[0], v[1], -v[2]}, a), (V{p[0], p[1], -p[2]})) << "a = " << a;
    }
}

}  // namespace
