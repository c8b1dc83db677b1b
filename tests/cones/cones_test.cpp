// The cone subsystem: a transcript, kept as data, of the Cone record's operations and of the
// edge cases of every projection; the optimality conditions of every family on random inputs;
// the exponential and power projections against their reference routines; the driver's row
// order, time, allocations and failure; the semidefinite workspace. Built with
// KORVEX_SLOW_SET, the reference comparisons take 10^6 triples per family.
#include <gtest/gtest.h>

#include <charconv>
#include <chrono>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>

#include "cones/cones.h"
#include "cones/lapack.h"
#include "cones/reference_projections.h"
#include "support/capture.h"
#include "support/golden.h"
#include "support/problems.h"

namespace {

using V = std::vector<double>;

// A Cone record over lists the test owns.
struct ConeFixture {
    std::vector<int> soc, sd;
    V power;
    Cone cone;
    ConeFixture(int free_vars, int linear_vars, std::vector<int> soc_sizes, std::vector<int> sd_sizes, int exp_triples,
                int dual_exp_triples, V exponents)
        : soc(std::move(soc_sizes)), sd(std::move(sd_sizes)), power(std::move(exponents)),
          cone{free_vars, linear_vars, soc.empty() ? nullptr : soc.data(), int(soc.size()),
               sd.empty() ? nullptr : sd.data(), int(sd.size()), exp_triples, dual_exp_triples,
               power.empty() ? nullptr : power.data(), int(power.size())} {}
    ConeFixture(const ConeFixture&) = delete;  // the record points into the lists
};

using ConeWorkOwner = std::unique_ptr<ConeWork, decltype(&freeConeWork)>;

V projected(const ConeFixture& f, V x) {
    ConeWorkOwner work(initCone(&f.cone), freeConeWork);
    EXPECT_EQ(projectToDualCone(x.data(), &f.cone, work.get()), 0);
    return x;
}

V normals(std::mt19937_64& rng, int count, double sigma = 1.0) {
    V v(count);
    for (double& x : v) x = std::normal_distribution<double>(0.0, sigma)(rng);
    return v;
}
double dot(const V& a, const V& b) { return std::inner_product(a.begin(), a.end(), b.begin(), 0.0); }
double negativePart(double x) { return x < 0.0 ? -x : 0.0; }

// The numbers of the next "|"-separated field; a word "*k" sets *count to k instead.
V field(std::istringstream& line, int* count) {
    std::string part, word;
    std::getline(line, part, '|');
    V list;
    for (std::istringstream in(part); in >> word;) {
        word[0] == '*' ? void(*count = std::stoi(word.substr(1))) : list.push_back(std::stod(word));
    }
    return list;
}

// The output of one scenario of the transcript; the head of cones_transcript.txt lists the
// kinds. Numbers come in the shortest text that reads back as the same bits.
std::string scenario(const std::string& line) {
    const std::string kind = line.substr(0, line.find(' '));
    std::istringstream in(line.substr(kind.size()));
    std::ostringstream text;
    if (kind == "timing") {
        ConeWork work{};
        Info info{};
        in >> info.iter >> work.projection_time_ms;
        char* timing = coneTimingLine(&info, &work);
        text << timing << "time left: " << work.projection_time_ms << '\n';
        releaseMemory(timing);
    } else if (kind == "record") {
        int counts[3] = {INT_MIN, INT_MIN, INT_MIN}, unused = 0;
        const V head = field(in, &unused), soc = field(in, &counts[0]), sd = field(in, &counts[1]),
                exp = field(in, &unused), power = field(in, &counts[2]), m = field(in, &unused);
        ConeFixture f{int(head[0]), int(head[1]), {soc.begin(), soc.end()}, {sd.begin(), sd.end()},
                      int(exp[0]), int(exp[1]), power};
        int* targets[] = {&f.cone.soc_blks, &f.cone.sd_blks, &f.cone.power_triples};
        for (int k = 0; k < 3; ++k) *targets[k] = counts[k] == INT_MIN ? *targets[k] : counts[k];
        const Data data{int(m[0]), 0, nullptr, nullptr, nullptr, nullptr};
        CapturedOutput out;
        const int result = checkConeRecord(&data, &f.cone);
        const std::string message = out.finish();
        text << "total " << coneTotalSize(&f.cone) << ", check " << result << ": "
             << (message.empty() ? "-\n" : message);
        if (result != 0) return text.str();
        int* lengths = nullptr;
        const int count = coneBlockLengths(&f.cone, &lengths);
        char* summary = coneSummaryText(&f.cone);
        ConeWorkOwner work(initCone(&f.cone), freeConeWork);  // semidefinite arrays from side 3 on only
        text << "workspace arrays: " << (work->sd_matrix ? "yes" : "no") << "\nblocks";
        for (int k = 0; k < count; ++k) text << ' ' << lengths[k];
        text << '\n' << summary << "|\n";
        releaseMemory(lengths);
        releaseMemory(summary);
    } else {
        double parameter = 0.0;
        if (kind == "pow" || kind == "sd") in >> parameter;
        V x;
        for (double value; in >> value;) x.push_back(value);
        const int k = kind == "sd" ? int(parameter) : int(x.size());
        const ConeFixture one(0, 0, kind == "soc" ? std::vector{k} : std::vector<int>{},
                              kind == "sd" ? std::vector{k} : std::vector<int>{}, 0, kind == "exp",
                              kind == "pow" ? V{-parameter} : V{});  // a dual power block: onto K_a
        text << "->";
        for (double value : projected(one, x)) {
            char digits[32];
            text << ' ' << std::string(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
        }
        text << '\n';
    }
    return text.str();
}

TEST(Cones, TranscriptOfRecordsAndProjections) {
    // The scenarios are the file's lines "== ..."; the lines below each, its output, are written anew.
    std::istringstream file(readGolden("cones_transcript.txt"));
    std::string text;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("== ", 0) == 0) text += line + "\n" + scenario(line.substr(3));
        if (line.rfind("#", 0) == 0) text += line + "\n";
    }
    expectGolden("cones_transcript.txt", text);
}

// Upper bounds on the distance from a point to a cone: each is the length of a move that
// provably lands in the cone (the least of a few such moves), or the distance itself.
double secondOrderGap(const double* x, int k) {  // |z| <= t: raise t
    double nz = 0.0;
    for (int j = 1; j < k; ++j) nz += x[j] * x[j];
    return k == 0 ? 0.0 : std::max(0.0, std::sqrt(nz) - x[0]);
}

// A packed matrix of side n: the norm of its negative eigenvalues, from LAPACK's dsyev.
double semidefiniteGap(const double* x, int n) {
    int lwork = 66 * n + 1, info = 0;
    V M(n * n), e(n), work(lwork);
    for (int j = 0, k = 0; j < n; ++j) {
        for (int i = j; i < n; ++i, ++k) M[i + j * n] = x[k] / (i == j ? 1.0 : std::sqrt(2.0));
    }
    if (n > 0) dsyev_("N", "L", &n, M.data(), &n, e.data(), work.data(), &lwork, &info, 1, 1);
    auto add_negative = [](double sum, double value) { return sum + value * value * (value < 0.0); };
    return std::sqrt(std::accumulate(e.begin(), e.end(), 0.0, add_negative));
}

// cl{(r, s, t): s > 0, s exp(r/s) <= t}: the edge (r <= 0, 0, t >= 0), raising t, or
// lowering r to s log(t/s).
double expConeGap(const double* p, int = 0) {
    const double r = p[0], s = p[1], t = p[2];
    double gap = std::hypot(std::hypot(std::max(r, 0.0), s), negativePart(t));
    if (s > 0.0) gap = std::min(gap, std::max(0.0, s * std::exp(r / s) - t));
    if (s > 0.0 && t > 0.0) gap = std::min(gap, std::max(0.0, r - s * std::log(t / s)));
    return gap;
}

// The dual {(u, v, w): u < 0, -u exp(v/u - 1) <= w} with its edge (0, v >= 0, w >= 0) is
// T^-1 K for T(u, v, w) = (u - v, -u, w), and the norm of T^-1 is below 2.
double dualExpConeGap(const double* p, int = 0) {
    const double image[3] = {p[0] - p[1], -p[0], p[2]};
    return 2 * expConeGap(image);
}

// {(x, y, z): x, y >= 0, (x/al)^a (y/be)^(1-a) >= |z|}: al = be = 1 is the power cone of
// exponent a, al = a and be = 1 - a its dual. Clip x and y at 0, then raise one of the three.
double powerConeGap(const double* p, double a, bool dual) {
    const double b = 1 - a, al = dual ? a : 1.0, be = dual ? b : 1.0;
    const double x = std::max(p[0], 0.0), y = std::max(p[1], 0.0), r = std::fabs(p[2]);
    const double fx = std::pow(x / al, a), fy = std::pow(y / be, b);
    double gap = std::max(0.0, r - fx * fy);
    if (a > 0.0 && fy > 0.0) gap = std::min(gap, std::max(0.0, al * std::pow(r / fy, 1 / a) - x));
    if (b > 0.0 && fx > 0.0) gap = std::min(gap, std::max(0.0, be * std::pow(r / fx, 1 / b) - y));
    return std::hypot(negativePart(p[0]), negativePart(p[1])) + gap;
}

using Gap = std::function<double(const double* slice, int block)>;

// p = P_C(v) from the driver on target and d = P_C*(-v) on dual meet the optimality conditions,
// the Moreau decomposition: p in C, d in C*, p - d = v and p'd = 0. Block b takes rows[b] rows,
// and gap and dual_gap bound its distance from C and C*. v has three magnitudes, and moves along
// a point of C from the polar cone to deep inside C.
void checkMoreau(const char* name, const ConeFixture& target, const ConeFixture& dual, const std::vector<int>& rows,
                 const Gap& gap, const Gap& dual_gap, double tolerance, std::mt19937_64& rng) {
    const int m = coneTotalSize(&target.cone);
    const V inside = projected(target, normals(rng, m));
    for (int trial = 0; trial < 24; ++trial) {
        const double sigma = std::pow(4.0, trial % 3);
        V v = normals(rng, m, sigma), minus_v(m);
        for (int k = 0; k < m; ++k) v[k] += (trial % 8 - 3.5) * sigma * inside[k];
        for (int k = 0; k < m; ++k) minus_v[k] = -v[k];
        const V p = projected(target, v), d = projected(dual, minus_v);
        const double size = 1 + std::sqrt(dot(v, v)), tol = tolerance * size;
        double gaps = 0.0;
        for (int b = 0, at = 0; at < m; at += rows[b++]) gaps += gap(p.data() + at, b) + dual_gap(d.data() + at, b);
        SCOPED_TRACE(testing::Message() << name << ", m = " << m << ", trial " << trial);
        EXPECT_LE(gaps, tol);
        for (int k = 0; k < m; ++k) EXPECT_NEAR(p[k] - d[k], v[k], tol) << "row " << k;
        EXPECT_LE(std::fabs(dot(p, d)), tol * size);
    }
}

TEST(Projection, OptimalityConditionsOfEveryFamilyOnRandomInputs) {
    std::mt19937_64 rng(4302);
    // Blocks of every side share one workspace, the largest first: a smaller one uses its leading
    // part with leading dimension n. dsyevr finds each eigenvalue to the absolute tolerance 1e-8.
    // Side 64 takes its wanted side by divide and conquer or by bisection and inverse iteration, as
    // the spectrum's shift gives.
    const std::vector<int> sides = {64, 30, 10, 6, 5, 4, 3, 2, 1, 0}, packed = {2080, 465, 55, 21, 15, 10, 6, 3, 1, 0};
    const ConeFixture sd(0, 0, {}, sides, 0, 0, {});
    const Gap sd_gap = [&sides](const double* x, int b) { return semidefiniteGap(x, sides[b]); };
    checkMoreau("semidefinite", sd, sd, packed, sd_gap, sd_gap, 1e-7, rng);
    const Gap ray = [](const double* x, int) { return negativePart(*x); };
    for (int n : {0, 1, 2, 3, 4, 5, 6, 40}) {
        const ConeFixture linear(0, n, {}, {}, 0, 0, {}), soc(0, 0, {n, n, n}, {}, 0, 0, {});
        const Gap soc_gap = [n](const double* x, int) { return secondOrderGap(x, n); };
        checkMoreau("non-negative", linear, linear, std::vector<int>(n, 1), ray, ray, 1e-14, rng);
        checkMoreau("second-order", soc, soc, {n, n, n}, soc_gap, soc_gap, 1e-14, rng);
        // A primal exponential block projects onto K*, a dual one onto K.
        const ConeFixture primal_exp(0, 0, {}, {}, n, 0, {}), dual_exp(0, 0, {}, {}, 0, n, {});
        checkMoreau("exponential", primal_exp, dual_exp, std::vector<int>(n, 3), dualExpConeGap, expConeGap, 1e-5, rng);
        // Exponents in (0, 1], 1 among them, and 0, whose cone {x >= 0, y >= |z|} is self-dual.
        // Exponent a projects onto K_a*, and -a onto K_a.
        V a(n), minus_a(n);
        for (int k = 0; k < n; ++k) {
            a[k] = k == 3 ? 0.0 : k == 5 ? 1.0 : std::uniform_real_distribution<double>(0.05, 0.95)(rng);
            minus_a[k] = -a[k];
        }
        const ConeFixture primal_power(0, 0, {}, {}, 0, 0, a), dual_power(0, 0, {}, {}, 0, 0, minus_a);
        checkMoreau("power", primal_power, dual_power, std::vector<int>(n, 3),
                    [&a](const double* x, int b) { return powerConeGap(x, a[b], a[b] > 0); },
                    [&a](const double* x, int b) { return powerConeGap(x, a[b], false); }, 1e-5, rng);
    }
}

#ifdef KORVEX_SLOW_SET
constexpr int kReferenceTriples = 1000000;
#else
constexpr int kReferenceTriples = 20000;
#endif

// Triple k: N(0, 1) entries times one magnitude 10^U(-8, 8), or each its own; or the point p of
// a boundary from `boundary` (with a direction n) moved by a relative 1e-12 to 1e-4 along n or
// at random, at such a magnitude.
template <class Boundary>
V randomTriple(std::mt19937_64& rng, int k, Boundary boundary) {
    auto magnitude = [&rng] { return std::pow(10.0, std::uniform_real_distribution<double>(-8.0, 8.0)(rng)); };
    const double scale = magnitude();
    V v = normals(rng, 3), p(3), n(3);
    if (k % 4 < 2) {
        for (double& x : v) x *= k % 4 == 0 ? scale : magnitude();
        return v;
    }
    boundary(p.data(), n.data());
    const double step = normals(rng, 1)[0] * std::pow(10.0, std::uniform_real_distribution<double>(-12.0, -4.0)(rng));
    for (int j = 0; j < 3; ++j) v[j] = scale * (p[j] + step * (k % 4 == 2 ? n[j] : v[j]));
    return v;
}

// A bound on |p - P(v)| for the exponential cone K: q, p moved into K (raise t or lower r), is
// a point of K, and u, v - p moved into the polar cone {a > 0: a exp(b/a) + e c <= 0} (lower c
// or b) and normalised, gives dist(v, K) >= v'u. So |q - P(v)|^2 <= |v - q|^2 - (v'u)^2, the
// squared part of v - q across u less (q'u)(2 (v - q)'u + q'u), which keeps its digits.
double expProjectionErrorBound(const V& v, const V& p) {
    V q = p, d = {v[0] - p[0], v[1] - p[1], v[2] - p[2]}, dq(3), across(3);
    if (q[1] > 0.0) {
        const double t = std::max(q[2], q[1] * std::exp(q[0] / q[1]));
        const double r = q[2] > 0.0 ? std::min(q[0], q[1] * std::log(q[2] / q[1])) : -HUGE_VAL;
        q[0] - r < t - q[2] ? void(q[0] = r) : void(q[2] = t);
    } else {
        q = {std::min(q[0], 0.0), 0.0, std::max(q[2], 0.0)};
    }
    if (d[0] > 0.0) {
        const double c = std::min(d[2], -d[0] * std::exp(d[1] / d[0] - 1));
        const double b = d[2] < 0.0 ? std::min(d[1], d[0] * (std::log(-d[2] / d[0]) + 1)) : -HUGE_VAL;
        d[1] - b < d[2] - c ? void(d[1] = b) : void(d[2] = c);
    } else {
        d = {0.0, std::min(d[1], 0.0), std::min(d[2], 0.0)};
    }
    const double length = std::sqrt(dot(d, d));
    for (int j = 0; j < 3; ++j) dq[j] = v[j] - q[j], d[j] /= length;
    const double along = dot(dq, d), apex = dot(q, d);
    for (int j = 0; j < 3; ++j) across[j] = dq[j] - along * d[j];
    const double squared = length > 0.0 && along + apex >= 0.0 ? dot(across, across) - apex * (2 * along + apex)
                                                                          : dot(dq, dq);
    for (int j = 0; j < 3; ++j) dq[j] = p[j] - q[j];
    return std::sqrt(std::max(squared, 0.0)) + std::sqrt(dot(dq, dq));
}

TEST(ReferenceRoutes, ExponentialAgreesWithTheBisectionOrIsTheProjectionWhereItDoesNot) {
    std::mt19937_64 rng(1205);
    int direct = 0, agree = 0, reference_off = 0;
    double worst = 0.0;
    // The cone's boundary s (x, 1, e^x) with its normal, or the polar cone's (e^x, (1 - x) e^x, -1).
    auto boundary = [&rng](double* p, double* n) {
        const V g = normals(rng, 3);
        const double x = 3 * g[0], s = std::fabs(g[1]), ex = std::exp(x);
        const double cone[6] = {s * x, s, s * ex, ex, (1 - x) * ex, -1.0};
        const double polar[6] = {s * ex, s * (1 - x) * ex, -s, x, 1.0, ex};
        std::copy(g[2] > 0.0 ? cone : polar, (g[2] > 0.0 ? cone : polar) + 3, p);
        std::copy((g[2] > 0.0 ? cone : polar) + 3, (g[2] > 0.0 ? cone : polar) + 6, n);
    };
    for (int k = 0; k < kReferenceTriples; ++k) {
        const V v = randomTriple(rng, k, boundary);
        V ours = v, theirs = v;
        projectExpTriple(ours.data());
        reference::projectExpTriple(theirs.data());
        if (ours == theirs) {  // the direct cases, bit for bit
            ++direct;
            continue;
        }
        // A searched triple: ours is the projection within the tolerance (the bound carries
        // about sqrt(eps |p| |v - p|) of rounding, a fifth of it or so); where the reference is
        // farther than the tolerance from ours, it is at least half of it from the projection.
        const double tolerance = 1e-7 * (1 + std::sqrt(dot(v, v))), bound = expProjectionErrorBound(v, ours);
        V apart(3);
        for (int j = 0; j < 3; ++j) apart[j] = ours[j] - theirs[j];
        worst = std::max(worst, bound / tolerance);
        ASSERT_LE(bound, tolerance) << std::hexfloat << v[0] << ' ' << v[1] << ' ' << v[2];
        if (std::sqrt(dot(apart, apart)) <= tolerance) {
            ++agree;
        } else {
            ASSERT_GE(std::sqrt(dot(apart, apart)) - bound, tolerance / 2) << std::hexfloat << v[0] << ' ' << v[1] << ' ' << v[2];
            ++reference_off;
        }
    }
    std::printf("exponential: %d triples, %d direct, %d within 1e-7 (1 + |v|) of the reference, %d where the "
                "reference is off the projection; largest error bound %.3f of the tolerance\n",
                kReferenceTriples, direct, agree, reference_off, worst);
    EXPECT_GT(agree, 10 * reference_off);
}

TEST(ReferenceRoutes, PowerAgreesWithThePlainNewton) {
    std::mt19937_64 rng(1206);
    int identical = 0;
    double a = 0.5;
    // The cone's boundary (x, y, x^a y^b) or the polar cone's (-a x, -b y, x^a y^b), with the normal.
    auto boundary = [&rng, &a](double* p, double* n) {
        const V g = normals(rng, 3);
        const double x = std::exp(g[0]), y = std::exp(g[1]), z = std::pow(x, a) * std::pow(y, 1 - a);
        const double polar = g[2] > 1.0 ? -1.0 : 1.0, point[3] = {polar > 0 ? x : -a * x, polar > 0 ? y : (a - 1) * y, z};
        const double normal[3] = {-a * z / x, (a - 1) * z / y, 1.0};
        std::copy(point, point + 3, p), std::copy(normal, normal + 3, n);
    };
    for (int k = 0; k < kReferenceTriples; ++k) {
        a = k % 50 == 0 ? 0.0 : k % 50 == 1 ? 1.0 : std::uniform_real_distribution<double>(0.02, 0.98)(rng);
        const V v = randomTriple(rng, k, boundary);
        V ours = v, theirs = v, apart(3);
        projectPowerTriple(ours.data(), a);
        reference::projectPowerTriple(theirs.data(), a);
        identical += ours == theirs;
        for (int j = 0; j < 3; ++j) apart[j] = ours[j] - theirs[j];
        ASSERT_LE(std::sqrt(dot(apart, apart)), 1e-7 * (1 + std::sqrt(dot(v, v))))
            << std::hexfloat << a << ": " << v[0] << ' ' << v[1] << ' ' << v[2];
    }
    std::printf("power: %d triples, %d identical, all within 1e-7 (1 + |v|)\n", kReferenceTriples, identical);
}

// The eigenpairs of a symmetric matrix (column-major, n x n) by dsyevd: values ascending,
// vectors over the matrix.
V eigenpairs(V& matrix, int n) {
    V values(n), work(2 * n * n + 6 * n + 1);
    std::vector<int> iwork(5 * n + 3);
    int lwork = int(work.size()), liwork = int(iwork.size()), info = 0;
    dsyevd_("V", "L", &n, matrix.data(), &n, values.data(), work.data(), &lwork, iwork.data(), &liwork, &info, 1, 1);
    EXPECT_EQ(info, 0);
    return values;
}

// Blocks whose eigenvalues are mostly on one side, so that the few on the other come from
// bisection and inverse iteration, agree with the full decomposition to rounding: a dense
// basis, the unit basis (a diagonal matrix, a tridiagonal that splits everywhere) and a
// block-diagonal one; the few spread, clustered within 1e-9 or all equal, the many spread
// or within 1e-11 of 0; both signs; magnitudes 1e-3 to 1e3.
TEST(Projection, SemidefiniteFewPairsAgreeWithTheFullDecomposition) {
    std::mt19937_64 rng(5150);
    for (int n : {9, 40, 161}) {
        const ConeFixture block(0, 0, {}, {n}, 0, 0, {});
        ConeWorkOwner work(initCone(&block.cone), freeConeWork);
        for (int trial = 0; trial < 24; ++trial) {
            V basis = normals(rng, n * n);  // orthonormal eigenvectors of a random symmetric matrix
            for (int j = 0; j < n; ++j) {
                for (int i = 0; i < j; ++i) basis[i + j * n] = basis[j + i * n];
                for (int i = 0; i < n; ++i) basis[i + j * n] *= trial % 3 == 2 && (i < n / 2) != (j < n / 2) ? 0.0 : 1.0;
            }
            eigenpairs(basis, n);
            if (trial % 3 == 1) std::fill(basis.begin(), basis.end(), 0.0);
            for (int i = 0; trial % 3 == 1 && i < n; ++i) basis[i + i * n] = 1.0;
            const int few = 1 + trial % std::max(1, n / 8);
            const double sign = trial % 2 == 0 ? 1.0 : -1.0, scale = std::pow(10.0, trial % 7 - 3);
            V spectrum(n), matrix(n * n, 0.0), packed;
            for (int k = 0; k < n; ++k) {
                const double one_side = trial % 4 == 0 ? 1.0 + 1e-9 * k : trial % 4 == 1 ? 2.0 : 0.1 + k;
                const double other_side = trial % 5 == 0 ? 1e-11 * k : 0.5 + std::fabs(normals(rng, 1)[0]);
                spectrum[k] = sign * scale * (k < few ? one_side : -other_side);
            }
            for (int k = 0; k < n; ++k) {
                for (int j = 0; j < n; ++j) {
                    for (int i = 0; i < n; ++i) matrix[i + j * n] += spectrum[k] * basis[i + k * n] * basis[j + k * n];
                }
            }
            for (int j = 0; j < n; ++j) {
                for (int i = j; i < n; ++i) packed.push_back(matrix[i + j * n] * (i == j ? 1.0 : std::sqrt(2.0)));
            }
            const double size = std::sqrt(dot(packed, packed));
            ASSERT_EQ(projectSemidefiniteBlock(packed.data(), n, work.get()), 0);
            const V values = eigenpairs(matrix, n);
            for (int j = 0, q = 0; j < n; ++j) {
                for (int i = j; i < n; ++i, ++q) {
                    double expected = 0.0;
                    for (int k = 0; k < n; ++k) {
                        expected += std::max(values[k], 0.0) * matrix[i + k * n] * matrix[j + k * n];
                    }
                    expected *= i == j ? 1.0 : std::sqrt(2.0);
                    ASSERT_NEAR(packed[q], expected, 1e-12 * size) << "side " << n << ", trial " << trial << ", row " << i;
                }
            }
        }
    }
}

TEST(Projection, EachBlockGoesToItsRoutineInRowOrderWithoutAllocatingAndAddsItsTime) {
    // One block of every kind at once gives, row for row, what records of one kind each give
    // on their slices; zero rows are neither read nor written.
    const ConeFixture f(2, 2, {3, 0, 1}, {2, 0, 30}, 1, 1, {0.3, -0.6, 0.0});
    std::mt19937_64 rng(4301);
    V x = normals(rng, coneTotalSize(&f.cone), 2.0);
    x[0] = NAN, x[1] = -1.0;
    V got = x;
    ConeWorkOwner work(initCone(&f.cone), freeConeWork);
    work->projection_time_ms = 7.0;
    failAllocationAt(0);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(projectToDualCone(got.data(), &f.cone, work.get()), 0);
    const double outer_ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(allocationCount(), 0);
    // Milliseconds added: within the time measured around the call, and far from a thousandth.
    const double added = work->projection_time_ms - 7.0;
    EXPECT_TRUE(added > outer_ms / 500 && added <= outer_ms) << added << " of " << outer_ms;

    V want(x.begin(), x.begin() + 2);
    for (const ConeFixture& part :
         {ConeFixture(0, 2, {}, {}, 0, 0, {}), ConeFixture(0, 0, {3, 0, 1}, {}, 0, 0, {}),
          ConeFixture(0, 0, {}, {2, 0, 30}, 0, 0, {}), ConeFixture(0, 0, {}, {}, 1, 0, {}),
          ConeFixture(0, 0, {}, {}, 0, 1, {}), ConeFixture(0, 0, {}, {}, 0, 0, {0.3, -0.6, 0.0})}) {
        const auto from = x.begin() + static_cast<std::ptrdiff_t>(want.size());
        const V slice = projected(part, V(from, from + coneTotalSize(&part.cone)));
        want.insert(want.end(), slice.begin(), slice.end());
    }
    EXPECT_EQ(std::memcmp(got.data(), want.data(), sizeof(double) * got.size()), 0);
    V zero(x.end() - 3, x.end());  // an exponent of exactly 0 is a dual block, projected directly
    projectPowerTriple(zero.data(), 0.0);
    EXPECT_TRUE(std::equal(zero.begin(), zero.end(), got.end() - 3));
}

TEST(Projection, FailingSemidefiniteBlockLeavesItAndTheLaterRowsAndAddsNoTime) {
    // A workspace length of 1 is too short for the decomposition: -1 at once, with the rows
    // before the block projected.
    const ConeFixture f(1, 2, {3}, {3, 3}, 1, 1, {0.5});
    ConeWorkOwner work(initCone(&f.cone), freeConeWork);
    work->eig_work_len = 1;
    std::mt19937_64 rng(4303);
    const V x = normals(rng, coneTotalSize(&f.cone), 3.0);
    V p = x, want = projected(ConeFixture(1, 2, {3}, {}, 0, 0, {}), V(x.begin(), x.begin() + 6));
    want.insert(want.end(), x.begin() + 6, x.end());
    CapturedOutput xerbla;
    EXPECT_EQ(projectToDualCone(p.data(), &f.cone, work.get()), -1);
    EXPECT_EQ(p, want);
    EXPECT_EQ(work->projection_time_ms, 0.0);
}

TEST(ConeWorkspace, ArraysSizedByTheLargestSideWithTheQueriedWorkspace) {
    ConeFixture f(0, 0, {}, {3, 5, 1}, 0, 0, {}), side4(0, 0, {}, {4}, 0, 0, {});
    ConeWorkOwner work(initCone(&f.cone), freeConeWork);
    ASSERT_TRUE(work && work->sd_matrix && work->sd_vectors && work->sd_values && work->eig_work && work->eig_iwork);
    for (int k = 0; k < 25; ++k) EXPECT_TRUE(work->sd_matrix[k] == 0.0 && work->sd_vectors[k] == 0.0);
    EXPECT_TRUE(work->sd_values[4] == 0.0 && work->eig_work_len >= 26 * 5 && work->eig_iwork_len >= 10 * 5);
    work->eig_work[work->eig_work_len - 1] = 1.0;  // LAPACK's minima for order 5, all addressable
    work->eig_iwork[work->eig_iwork_len - 1] = 1;
    // Every failed allocation (the record and its five arrays) gives null and prints nothing.
    EXPECT_EQ(expectEveryAllocationFailureReported([&] {
                  CapturedOutput out;
                  ConeWorkOwner attempt(initCone(&side4.cone), freeConeWork);
                  EXPECT_EQ(out.finish(), "");
                  return attempt != nullptr;
              }),
              6);
}

}  // namespace
