// The linear system. On random data: the equilibration, the factor of K against SuiteSparse's
// ldl, the Marlet warm start and every projection step against (M + Q) t = M w. Worked cases and
// report texts as a transcript. The order of the sum in A'x, zero pivots, interrupts, AMD failing.
#include <gtest/gtest.h>

#include <SuiteSparse_config.h>
extern "C" {
#include <ldl.h>  // a C header without its own linkage block
}

#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>

#include "core/solver.h"
#include "linsys/linsys.h"
#include "reporting/threads.h"
#include "reporting/timing.h"
#include "support/reference_solve.h"
#include "support/capture.h"
#include "support/golden.h"
#include "support/problems.h"

// The suite is linked with --wrap for isInterrupted, so that a test can count the polls of
// the elimination and press Ctrl+C (through the console handler) just before the k-th.
static long polls = 0, interrupt_at_poll = 0;
extern "C" int __real__ZN6korvex13isInterruptedEv();
extern "C" int __wrap__ZN6korvex13isInterruptedEv() {
    if (++polls == interrupt_at_poll) consoleInterruptHandler(0);
    return __real__ZN6korvex13isInterruptedEv();
}

namespace {

using V = std::vector<double>;
using Columns = std::vector<std::vector<std::pair<int, double>>>;  // (row, value) in stored order

using Factor = std::unique_ptr<LinSysWork, decltype(&releasePriv)>;

// A SparseMatrix over vectors the test owns.
struct TestMatrix {
    int m = 0, n = 0;
    V x;
    std::vector<int> i, p{0};
    SparseMatrix view{};
    TestMatrix(int rows, const Columns& columns) : m(rows), n(static_cast<int>(columns.size())) {
        for (const auto& column : columns) {
            for (auto [row, value] : column) i.push_back(row), x.push_back(value);
            p.push_back(static_cast<int>(i.size()));
        }
    }
    SparseMatrix* get() { return &(view = SparseMatrix{x.data(), i.data(), p.data(), m, n}); }
};

// About density m n entries in [-1, 1] in no row order; one row and one column (of two or
// more) stay empty, and a few entries are stored zeros or stored twice. With m >= 2n + 8 the
// last n rows are -I instead, as for variables in a cone: rows of one entry each.
TestMatrix randomMatrix(int m, int n, double density, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0), chance(0.0, 1.0);
    const int empty_row = m >= 2 ? int(random() % m) : -1, empty_column = n >= 2 ? int(random() % n) : -1;
    const int cone_rows = m >= 2 * n + 8 ? n : 0;
    Columns columns(n);
    for (int j = 0; j < n; ++j) {
        if (cone_rows > 0) columns[j].emplace_back(m - n + j, -1.0);
        for (int r = 0; r < m - cone_rows && j != empty_column; ++r) {
            if (r == empty_row || chance(random) >= density) continue;
            const double draw = chance(random);
            columns[j].emplace_back(r, draw < 0.05 ? 0.0 : value(random));
            if (draw > 0.95) columns[j].emplace_back(r, value(random));
        }
        std::shuffle(columns[j].begin(), columns[j].end(), random);
    }
    return TestMatrix(m, columns);
}

V randomVector(int n, std::uint32_t seed) {
    std::mt19937 random(seed);
    V v(n);
    for (double& entry : v) entry = std::uniform_real_distribution<double>(-1.0, 1.0)(random);
    return v;
}

// max |(M + Q) t - Mw| / max |Mw| for M = diag(rho_x I, I, 1) and Q = [0, A', c; -A, 0, b;
// -c', -b', 0], with the A, b and c of the work record, in a plain loop over the stored
// entries, duplicates summed.
double projectionResidual(const Work* w, double rho_x, const double* t, const V& Mw) {
    const int n = w->n, N = n + w->m;
    V r(N + 1, t[N]);
    for (int k = 0; k < N; ++k) {
        const double last = k < n ? w->c[k] : w->b[k - n];
        r[k] = (k < n ? rho_x : 1.0) * t[k] + last * t[N];
        r[N] -= last * t[k];
    }
    for (int j = 0; j < n; ++j) {
        for (int q = w->A->p[j]; q < w->A->p[j + 1]; ++q) {
            r[j] += w->A->x[q] * t[n + w->A->i[q]];
            r[n + w->A->i[q]] -= w->A->x[q] * t[j];
        }
    }
    double residual = 0.0, size = 1e-300;  // 0 for Mw = 0 solved exactly
    for (int k = 0; k <= N; ++k) {
        residual = std::max(residual, std::fabs(r[k] - Mw[k]));
        size = std::max(size, std::fabs(Mw[k]));
    }
    return residual / size;
}

Settings testSettings(double rho_x, int normalize, int do_super_korvex, int warm_start = 0, double scale = 1.0) {
    Settings settings{};
    setDefaultSettings(&settings);
    settings.verbose = 0;
    settings.rho_x = rho_x, settings.normalize = normalize, settings.do_super_korvex = do_super_korvex;
    settings.warm_start = warm_start, settings.scale = scale;
    return settings;
}

// initWork for A, b and c, every row a non-negative-cone row.
struct WorkFixture {
    TestMatrix A;
    V b, c;
    Settings settings;
    Cone cone{0, A.m, nullptr, 0, nullptr, 0, 0, 0, nullptr, 0};
    Data data{A.m, A.n, A.get(), b.data(), c.data(), &settings};
    Work* work = initWork(&data, &cone);
    WorkFixture(TestMatrix matrix, V b_in, V c_in, Settings s)
        : A(std::move(matrix)), b(std::move(b_in)), c(std::move(c_in)), settings(s) {}
    ~WorkFixture() { freeWork(work); }
};

// "name: values" in the shortest text that reads back as the same numbers.
void put(std::ostream& out, const char* name, const double* values, int count) {
    out << name << ':';
    for (int k = 0; k < count; ++k) {
        char digits[32];
        out << ' ' << std::string(digits, std::to_chars(digits, digits + sizeof digits, values[k]).ptr);
    }
    out << '\n';
}

TEST(LinSys, TranscriptOfWorkedCasesAndReportTexts) {
    std::ostringstream out;
    // The equilibration of A for a cone: D, E, the result and the two mean norms.
    auto equilibrate = [&out](const char* name, int free_vars, int linear_vars, int* soc, TestMatrix A) {
        const Cone cone{free_vars, linear_vars, soc, soc ? 1 : 0, nullptr, 0, 0, 0, nullptr, 0};
        const Settings settings = testSettings(1.0, 1, 1);
        Scaling s{};
        EXPECT_EQ(normalizeMatrix(A.get(), &settings, &cone, &s), 0);
        const double means[] = {s.mean_row_norm, s.mean_col_norm};
        out << "== equilibration, " << name << '\n';
        put(out, "D", s.row_scale.get(), A.m), put(out, "E", s.col_scale.get(), A.n);
        put(out, "A", A.x.data(), static_cast<int>(A.x.size())), put(out, "mean row and column norms", means, 2);
    };
    int three[] = {3};
    Columns wide(100);  // 4 x 100: min_row 0.01, max_row 1e4, min_col 0.002, max_col 2000
    wide[0] = {{1, 0.005}}, wide[1] = {{1, 0.001}}, wide[2] = {{2, 0.01}}, wide[3] = {{3, 1e5}};
    equilibrate("two non-negative rows, A = (3, 4)'", 0, 2, nullptr, TestMatrix(2, {{{0, 3.0}, {1, 4.0}}}));
    equilibrate("rows below, at and above their bounds, a column below its own", 0, 4, nullptr, TestMatrix(4, wide));
    equilibrate("a free row, then a second-order block of row norms 3, 0, 0", 1, 0, three,
                TestMatrix(4, {{{0, 5.0}, {1, 3.0}}}));
    equilibrate("a NaN entry", 0, 3, nullptr, TestMatrix(3, {{{0, NAN}, {1, 2.0}}, {{2, 3.0}}}));

    // The first iterate for A = (3, 4)' and c = (2): the working b and c with their factors,
    // u, v and h; the caller's b stays as it was.
    auto start = [&out](const char* name, V b, const Settings& settings, const Solution* point) {
        WorkFixture f(TestMatrix(2, {{{0, 3.0}, {1, 4.0}}}), b, {2.0}, settings);
        CapturedOutput message;
        EXPECT_EQ(startVectors(&f.data, f.work, point), 0);
        const Work* w = f.work;
        const double factors[] = {w->b_norm, w->c_norm, w->b_factor, w->c_factor};
        out << "== first iterate, " << name << '\n' << message.finish();
        put(out, "norms of the caller's b and c, b_factor, c_factor", factors, 4);
        put(out, "b", w->b.get(), 2), put(out, "c", w->c.get(), 1), put(out, "u", w->u.get(), 4);
        put(out, "v", w->v.get(), settings.do_super_korvex ? 0 : 4), put(out, "h", w->h.get(), 3);
        EXPECT_EQ(std::memcmp(f.b.data(), b.data(), sizeof(double) * 2), 0);
    };
    double x[] = {0.5}, y[] = {2.0, NAN}, s[] = {NAN, 0.25}, inf[] = {INFINITY};
    const Solution point{x, y, s}, unbounded{inf, y, s}, without_s{x, y, nullptr};
    start("normalised, b = (3, 8)", {3.0, 8.0}, testSettings(1.0, 1, 0), nullptr);
    start("a zero b stays zero", {0.0, 0.0}, testSettings(1.0, 1, 1), nullptr);
    start("a NaN norm counts as 0.001", {NAN, 0.0}, testSettings(1.0, 1, 1), nullptr);
    start("warm, normalised with scale 3", {3.0, 8.0}, testSettings(1.0, 1, 0, 1, 3.0), &point);
    start("warm, not normalised, an infinite x", {3.0, 8.0}, testSettings(1.0, 0, 0, 1), &unbounded);
    start("warm without s: a warning, then cold", {3.0, 8.0}, testSettings(1.0, 0, 0, 1), &without_s);

    // A'x with A = (1, 1)' and an empty column adds the terms one at a time, in stored order, to
    // the present 1e16 and -0.0: each rounds back to 1e16, and -0.0 stays.
    TestMatrix sparse(3, {{{2, 1.5}}, {{0, 0.0}}, {{1, -2.0}}, {}}), ones(2, {{{0, 1.0}, {1, 1.0}}, {}});
    double sums[] = {1e16, -0.0};
    multiplyAddAt(ones.get(), V{1.0, 1.0}.data(), sums);
    put(out << "== transposed product\n", "A'x + (1e16, -0)", sums, 2);
    // The report texts: no fill, so L holds the 3 entries of A, a stored zero among them. The
    // average is over info->iter + 1 iterations, and a summary resets the time.
    const Settings settings = testSettings(1.0, 0, 0);
    Factor f(initPriv(sparse.get(), &settings), releasePriv);
    char* method = linSysMethodText(sparse.get());
    out << "== texts\n" << method << '\n';
    releaseMemory(method);
    Info info{};
    for (auto [iter, ms] : {std::pair{4, 2500.0}, {0, 1500.0}, {0, 0.0}}) {
        info.iter = iter;
        f->solve_time_ms += ms;
        char* summary = linSysSummaryText(f.get(), &info);
        out << summary << "time left: " << f->solve_time_ms << '\n';
        releaseMemory(summary);
    }
    expectGolden("linsys_transcript.txt", out.str());
}

TEST(ProjectionSolve, FactorsMatchLdlAndEveryStepSolvesMPlusQ) {
    std::uint32_t seed = 40;
    for (double rho_x : {1e-3, 1.0, 10.0}) {
        for (const auto& shape : {std::pair{10, 4}, {3, 8}, {6, 6}, {30, 30}, {40, 16}, {1, 1}, {0, 3}, {3, 0}}) {
            const int m = shape.first, n = shape.second;
            for (int normalize : {0, 1}) {
                SCOPED_TRACE(testing::Message() << m << "x" << n << " rho_x " << rho_x << " normalize " << normalize);
                auto fixture = [&](int marlet, double scale) {
                    return std::make_unique<WorkFixture>(randomMatrix(m, n, m * n > 100 ? 0.1 : 0.4, seed),
                                                         randomVector(m, seed + 1), randomVector(n, seed + 2),
                                                         testSettings(rho_x, normalize, marlet, marlet, scale));
                };
                const auto marlet = fixture(1, 1.0), standard = fixture(0, 2.5);
                Work *w = marlet->work, *s = standard->work;
                const TestMatrix& A = marlet->A;
                for (int j = 0; j < n && normalize; ++j) {  // Work's A is scale D^-1 A E^-1, scale last
                    for (int q = A.p[j]; q < A.p[j + 1]; ++q) {
                        const double value = w->A->x[q], D = w->scaling->row_scale[A.i[q]];
                        const double error = std::fabs(value - A.x[q] / D / w->scaling->col_scale[j]);
                        EXPECT_TRUE(error <= 1e-15 * (1 + std::fabs(value)) && s->A->x[q] == 2.5 * value);
                    }
                }
                const int l = w->l, N = l - 1;
                const LinSysWork* f = w->lin_sys;
                // Quasi-definite: each pivot has its block's sign. The column counts of L are ldl's.
                for (int k = 0; k < N; ++k) EXPECT_EQ(f->diag[k] > 0.0, f->perm[k] < n) << "pivot " << k;
                cs* K = assembleSystemMatrix(w->A, &marlet->settings);
                int* inverse = cs_pinv(f->perm.get(), N);
                cs* C = cs_symperm(K, inverse, 1);
                std::vector<int> Lp(N + 1), parent(N), Lnz(N), flag(N);
                ldl_symbolic(N, C->p, C->i, Lp.data(), parent.data(), Lnz.data(), flag.data(), nullptr, nullptr);
                EXPECT_TRUE(std::equal(Lp.begin(), Lp.end(), f->L->p));
                cs_spfree(C), cs_spfree(K), cs_free(inverse);

                // The Marlet warm start u = (I + Q) u_t, with u_t = (x, y, 1) in normalised units.
                const V x = randomVector(std::max(n, 1), seed + 3), y = randomVector(std::max(m, 1), seed + 4);
                const Solution point{const_cast<double*>(x.data()), const_cast<double*>(y.data()), nullptr};
                failAllocationAt(0);
                startVectors(&marlet->data, w, &point);
                startVectors(&standard->data, s, nullptr);
                const double units = normalize && n > 0 ? w->scaling->col_scale[0] * w->b_factor : 1.0;
                EXPECT_TRUE(w->u_t[N] == 1.0 && (n == 0 || std::fabs(w->u_t[0] - x[0] * units) <= 1e-15 * units));
                EXPECT_LT(projectionResidual(w, 1.0, w->u_t.get(), V(w->u.get(), w->u.get() + l)), 1e-14);

                // (M + Q) target = M source, also in place, the source unchanged; the standard step from u + v.
                const V source = randomVector(l, seed), u = randomVector(l, seed + 7), v = randomVector(l, seed + 8);
                V weighted = source, target(l), in_place = source, sum(l);
                for (int k = 0; k < n; ++k) weighted[k] *= rho_x;
                for (int k = 0; k < l; ++k) sum[k] = (u[k] + v[k]) * (k < n ? rho_x : 1.0);
                projectLinSysv2(target.data(), source.data(), w, 1);
                projectLinSysv2(in_place.data(), in_place.data(), w, 2);
                std::memcpy(s->u.get(), u.data(), sizeof(double) * l);
                std::memcpy(s->v.get(), v.data(), sizeof(double) * l);
                projectLinSys(s, 1);
                EXPECT_EQ(allocationCount(), 0);
                EXPECT_LT(projectionResidual(w, rho_x, target.data(), weighted), 1e-12);
                EXPECT_EQ(std::memcmp(target.data(), in_place.data(), sizeof(double) * l), 0);
                EXPECT_EQ(source, randomVector(l, seed++));
                EXPECT_LT(projectionResidual(s, rho_x, s->u_t.get(), sum), 1e-12);

                // The solve over supernodes and the gathers with A against their plain transcriptions.
                V z = randomVector(N, seed + 9), Ax(m), Aty(n), Ax_ref(m, 0.0), Aty_ref(n, 0.0);
                const V expected = referenceSolve(f, z);
                solveWithFactors(w->A, w->settings, w->lin_sys, z.data(), nullptr, 0);
                EXPECT_LE(relativeDistance(z, expected), 1e-12);
                productA(&f->rows_of_A, u.data(), Ax.data());
                productAt(w->A, v.data() + n, Aty.data());
                multiplyAddA(w->A, u.data(), Ax_ref.data());
                multiplyAddAt(w->A, v.data() + n, Aty_ref.data());
                EXPECT_LE(relativeDistance(Ax, Ax_ref), 1e-15);
                EXPECT_LE(relativeDistance(Aty, Aty_ref), 1e-15);
            }
        }
    }
}

// The differences of a side x side grid: a row per pair of neighbouring pixels, +1 and -1.
TestMatrix gridDifferences(int side) {
    Columns columns(side * side);
    int row = 0;
    for (int a = 0; a < side; ++a) {
        for (int b = 0; b < side; ++b) {
            const int pixel = a * side + b;
            for (int neighbour : {b + 1 < side ? pixel + 1 : -1, a + 1 < side ? pixel + side : -1}) {
                if (neighbour < 0) continue;
                columns[pixel].emplace_back(row, 1.0);
                columns[neighbour].emplace_back(row++, -1.0);
            }
        }
    }
    return TestMatrix(row, columns);
}

// n columns, each with a row of its own and ten of 40 rows that all share: eliminated
// first, the columns and their own rows are many small subtrees hanging off a spine, the
// shared rows, and most of their entries cross to it.
TestMatrix sharedRows(int n, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    Columns columns(n);
    for (int j = 0; j < n; ++j) {
        columns[j].emplace_back(j, value(random));
        for (int k = 0; k < 10; ++k) columns[j].emplace_back(n + int(random() % 40), value(random));
    }
    return TestMatrix(n + 40, columns);
}

// Factors large enough to be split among threads, of the two shapes that split: a spine
// with many small subtrees off it (sharedRows) and a grid's differences (subtrees whose
// columns interleave). The split solve agrees with the column-by-column transcription, and
// 1, 2 and 3 threads give its bits.
TEST(ProjectionSolve, SplitFactorsAgreeWithTheColumnSolveOnAnyThreadCount) {
    for (int shape : {0, 1}) {
        SCOPED_TRACE(shape == 0 ? "shared rows" : "grid differences");
        TestMatrix A = shape == 0 ? sharedRows(4000, 91) : gridDifferences(60);
        const int m = A.m, n = A.n;
        WorkFixture f(std::move(A), randomVector(m, 92), randomVector(n, 93), testSettings(1e-3, 1, 0));
        ASSERT_NE(f.work, nullptr);
        const LinSysWork* lin_sys = f.work->lin_sys;
        const Supernodes& panels = lin_sys->panels;
        EXPECT_GE(panels.task_count, 2);
        EXPECT_GT(panels.cross_row_count, 0);
        const V z = randomVector(m + n, 94), expected = referenceSolve(lin_sys, z);
        std::vector<V> solved;
        for (int threads : {1, 2, 3}) {
            setThreadCount(threads);
            V x = z;
            solveWithFactors(f.work->A, f.work->settings, f.work->lin_sys, x.data(), nullptr, 0);
            EXPECT_LE(relativeDistance(x, expected), 1e-12);
            solved.push_back(x);
        }
        setThreadCount(0);
        EXPECT_EQ(std::memcmp(solved[0].data(), solved[1].data(), sizeof(double) * (m + n)), 0);
        EXPECT_EQ(std::memcmp(solved[0].data(), solved[2].data(), sizeof(double) * (m + n)), 0);
    }
}

TEST(Factorisation, RefusesAnExactZeroPivotSilentlyAndStopsAtAnInterruptOrAFailingAmd) {
    // A = ones(3, 2) has equal columns: the pivot of the x column eliminated last is a small multiple of
    // rho_x. With 2^-60 it drowns in the rounding of the order-one terms to exactly 0; with 2^-46 it lives.
    TestMatrix ones(3, {{{0, 1.0}, {1, 1.0}, {2, 1.0}}, {{0, 1.0}, {1, 1.0}, {2, 1.0}}});
    const Settings larger = testSettings(std::ldexp(1.0, -46), 0, 0), tiny = testSettings(std::ldexp(1.0, -60), 0, 0);
    EXPECT_TRUE(Factor(initPriv(ones.get(), &larger), releasePriv));
    CapturedOutput silent;
    EXPECT_FALSE(Factor(initPriv(ones.get(), &tiny), releasePriv));
    EXPECT_EQ(silent.finish(), "");

    // The elimination (here of K in natural order) polls once per row, and an interrupt stops
    // it before the next row.
    TestMatrix A = randomMatrix(20, 10, 0.3, 5);
    const Settings settings = testSettings(1.0, 0, 0);
    cs* K = assembleSystemMatrix(A.get(), &settings);
    for (long at_poll : {0L, 1L, 30L}) {  // 0: no interrupt; N = 30 rows
        polls = 0;
        interrupt_at_poll = at_poll;
        Factor p(createRecord<LinSysWork>(), releasePriv);
        CapturedOutput out;
        EXPECT_EQ(factoriseSystem(K, p.get()), at_poll ? -1 - 30 : 0);
        EXPECT_EQ(out.finish(), at_poll ? "interrupt detected in factorization\n" : "");
        EXPECT_EQ(polls, at_poll ? at_poll : 30);
        interruptFlag = 0;
    }
    interrupt_at_poll = 0;
    cs_spfree(K);
    // AMD allocates through SuiteSparse's own hooks; out of memory, amd_order's result is negative.
    const auto saved = SuiteSparse_config;
    SuiteSparse_config.malloc_func = [](std::size_t) -> void* { return nullptr; };
    SuiteSparse_config.calloc_func = [](std::size_t, std::size_t) -> void* { return nullptr; };
    Factor refused(initPriv(A.get(), &settings), releasePriv);
    SuiteSparse_config = saved;
    EXPECT_FALSE(refused);
}

}  // namespace
