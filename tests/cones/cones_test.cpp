// The cone subsystem: a transcript, kept as data, of the Cone record's operations and of the
// edge cases of every projection; the optimality conditions of every family on random inputs;
// the driver's row order, time, allocations and failure; the semidefinite workspace.
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
    const std::vector<int> sides = {30, 10, 6, 5, 4, 3, 2, 1, 0}, packed = {465, 55, 21, 15, 10, 6, 3, 1, 0};
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

// The projection of a packed matrix of side n from LAPACK's full dsyev: the sum of e z z'
// over its positive eigenpairs, packed.
V denseSemidefiniteProjection(const V& x, int n) {
    int lwork = 66 * n + 1, info = 0;
    V M(n * n), e(n), work(lwork), out(x.size());
    for (int j = 0, k = 0; j < n; ++j) {
        for (int i = j; i < n; ++i, ++k) M[i + j * n] = x[k] / (i == j ? 1.0 : std::sqrt(2.0));
    }
    dsyev_("V", "L", &n, M.data(), &n, e.data(), work.data(), &lwork, &info, 1, 1);
    for (int j = 0, k = 0; j < n; ++j) {
        for (int i = j; i < n; ++i, ++k) {
            double sum = 0.0;
            for (int p = 0; p < n; ++p) sum += std::max(e[p], 0.0) * M[i + p * n] * M[j + p * n];
            out[k] = sum * (i == j ? 1.0 : std::sqrt(2.0));
        }
    }
    return out;
}

TEST(Projection, SemidefiniteBlocksMatchTheFullDecompositionOnEitherSide) {
    // Shifted random spectra from almost all negative to almost all positive (each side and
    // either eigensolver of the tridiagonal), and low-rank matrices of either sign, whose
    // other eigenvalues are zeros to rounding; the sides share one workspace, largest first.
    std::mt19937_64 rng(4304);
    const std::vector<int> sides = {130, 64, 17, 3};
    const ConeFixture all(0, 0, {}, sides, 0, 0, {});
    ConeWorkOwner work(initCone(&all.cone), freeConeWork);
    for (int n : sides) {
        for (double shift : {-1.2, -0.95, -0.7, 0.0, 0.7, 0.95, 1.2, 2.0, -2.0}) {
            V x = normals(rng, n * (n + 1) / 2);
            if (std::fabs(shift) == 2.0) {  // rank 2, positive or negative semidefinite
                const V a = normals(rng, n), b = normals(rng, n);
                for (int j = 0, k = 0; j < n; ++j) {
                    for (int i = j; i < n; ++i, ++k) {
                        x[k] = shift / 2 * (a[i] * a[j] + b[i] * b[j]) * (i == j ? 1.0 : std::sqrt(2.0));
                    }
                }
            } else {
                for (int j = 0; j < n; ++j) x[j * n - j * (j - 1) / 2] += shift * std::sqrt(2.0 * n);
            }
            const V want = denseSemidefiniteProjection(x, n);
            V got = x;
            ASSERT_EQ(projectSemidefiniteBlock(got.data(), n, work.get()), 0);
            double error = 0.0;
            for (std::size_t k = 0; k < x.size(); ++k) error = std::max(error, std::fabs(got[k] - want[k]));
            EXPECT_LE(error, 1e-12 * n * (1 + std::sqrt(dot(x, x)))) << "side " << n << ", shift " << shift;
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
