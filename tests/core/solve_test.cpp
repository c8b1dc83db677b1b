// Solves with both iterations: known optima and certificates measured from the returned
// vectors in the caller's units, the gate table of pinned iteration counts, the status
// decided at the limit, the stopping test, and the arrays of the progress history.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "cones/cones.h"
#include "core/solver.h"
#include "linsys/linsys.h"
#include "support/golden.h"
#include "support/problems.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity(), kNaN = std::numeric_limits<double>::quiet_NaN();

double norm(const std::vector<double>& v) { return std::sqrt(dot(v, v.data())); }

// The returned vectors measured in the caller's units: primal = A x + s - b, dual = A'y + c
// (without b and c for a certificate), c'x, b'y, and dist(s, K), dist(y, K*) in the max
// norm through the library's projection (dist(s, K) = |P_K*(-s)| by Moreau).
struct Figures { std::vector<double> primal, dual; double cx = 0, by = 0, dist_s = 0, dist_y = 0; };

Figures figuresOf(const SolveRun& run, bool certificate = false) {
    const int m = run.data.m, n = run.data.n;
    const Solution& v = run.solution;
    Figures f{std::vector<double>(v.s, v.s + m), std::vector<double>(n), dot(run.problem.c, v.x), dot(run.problem.b, v.y)};
    for (int i = 0; i < m && !certificate; ++i) f.primal[i] -= run.data.b[i];
    for (int j = 0; j < n; ++j) {
        f.dual[j] = certificate ? 0.0 : run.data.c[j];
        for (int q = run.A.p[j]; q < run.A.p[j + 1]; ++q) {
            f.primal[run.A.i[q]] += run.A.x[q] * v.x[j], f.dual[j] += run.A.x[q] * v.y[run.A.i[q]];
        }
    }
    std::vector<double> y(v.y, v.y + m), s(m);
    for (int i = 0; i < m; ++i) s[i] = -v.s[i];
    ConeWork* cones = initCone(&run.cone);
    projectToDualCone(y.data(), &run.cone, cones), projectToDualCone(s.data(), &run.cone, cones);
    freeConeWork(cones);
    for (int i = 0; i < m; ++i) f.dist_y = std::max(f.dist_y, std::fabs(y[i] - v.y[i])), f.dist_s = std::max(f.dist_s, std::fabs(s[i]));
    return f;
}

std::vector<Problem> everyProblem() {
    std::vector<Problem> problems = knownProblems(), certificates = certificateProblems();
    problems.insert(problems.end(), certificates.begin(), certificates.end());
    return problems;
}

// The parameter is do_super_korvex: 0 standard iteration, 1 Marlet iteration.
class Solve : public ::testing::TestWithParam<int> {};

TEST_P(Solve, KnownOptimaAndCertificatesMeasuredFromTheReturnedVectors) {
    // Whatever the normalisation and the scale, Info describes the returned x, y, s in the
    // caller's units: every figure is recomputed from them and the caller's A, b, c.
    for (const auto& [normalize, scale] : {std::pair{1, 1.0}, {1, 4.0}, {1, 0.3}, {0, 1.0}}) {
        for (const Problem& problem : everyProblem()) {
            SCOPED_TRACE(problem.name + " normalize " + std::to_string(normalize) + " scale " + std::to_string(scale));
            SolveRun run(problem);
            run.settings.do_super_korvex = GetParam(), run.settings.normalize = normalize, run.settings.scale = scale;
            ASSERT_EQ(run.solve(), problem.status) << run.report;
            const Info& info = run.info;
            const bool infeasible = problem.status == KORVEX_INFEASIBLE, certificate = problem.status != KORVEX_SOLVED;
            const Figures f = figuresOf(run, certificate);
            if (!certificate) {
                EXPECT_LT(std::fabs(info.pobj - problem.objective), 1e-4 * (1 + std::fabs(problem.objective)));
                for (int j = 0; j < problem.n(); ++j) EXPECT_NEAR(run.solution.x[j], problem.x[j], 2e-3) << "x" << j;
                EXPECT_NEAR(norm(f.primal) / (1 + norm(problem.b)), info.resPri, 1e-3 * info.resPri + 1e-13);
                EXPECT_NEAR(norm(f.dual) / (1 + norm(problem.c)), info.resDual, 1e-3 * info.resDual + 1e-13);
                EXPECT_NEAR(f.cx, info.pobj, 1e-12 * (1 + std::fabs(f.cx)));
                EXPECT_NEAR(-f.by, info.dobj, 1e-12 * (1 + std::fabs(f.by)));
                EXPECT_NEAR(std::fabs(f.cx + f.by) / (1 + std::fabs(f.cx) + std::fabs(f.by)), info.relGap, 1e-12);
                EXPECT_LT(std::max({info.resPri, info.resDual, info.relGap, f.dist_s, f.dist_y}), run.settings.eps);
                continue;
            }
            // Infeasible: b'y = -1, A'y = 0 and y in K*, so no x has A x + s = b with s in K.
            // Unbounded: c'x = -1, A x + s = 0 and s in K, a ray of ever better points.
            EXPECT_NEAR(infeasible ? f.by : f.cx, -1.0, 1e-9);
            EXPECT_LT(norm(infeasible ? f.dual : f.primal), 1e-5);
            EXPECT_LT(infeasible ? f.dist_y : f.dist_s, 1e-9);
            // Its measure, |A'y| |b| or |A x + s| |c|, passed the test; unboundedness comes first.
            const double measure = infeasible ? norm(problem.b) * norm(f.dual) : norm(problem.c) * norm(f.primal);
            EXPECT_NEAR(infeasible ? info.resInfeas : info.resUnbdd, measure, 1e-3 * measure + 1e-15);
            EXPECT_LT(infeasible ? info.resInfeas : info.resUnbdd, run.settings.eps);
            EXPECT_FALSE(infeasible && info.resUnbdd < run.settings.eps);
            // What a certificate leaves undefined is NaN; the objectives are infinite.
            const Solution& v = run.solution;
            EXPECT_TRUE(infeasible ? allNaN(v.x, problem.n()) && allNaN(v.s, problem.m()) : allNaN(v.y, problem.m()));
            EXPECT_TRUE(info.pobj == (infeasible ? kInf : -kInf) && info.dobj == info.pobj);
            EXPECT_TRUE(std::isnan(info.resPri) && std::isnan(info.resDual) && std::isnan(info.relGap));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(BothIterations, Solve, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<int>& info) { return info.param ? "Marlet" : "Standard"; });

TEST(Gate, IterationCountsAndObjectivesOfTheKnownSolves) {
    // One row per solve in tests/golden/core_gates: a change that slows convergence, or
    // takes other steps, changes the row. Both iterations run every problem; the variants
    // of the Marlet step logic and of the units run the problem of every cone family. A
    // second identical solve gives identical bits.
    const auto marlet = [](Settings& s) { s.do_super_korvex = 1; };
    const std::pair<const char*, std::function<void(Settings&)>> variants[] = {
        {"standard", [](Settings&) {}}, {"marlet", marlet},
        {"standard normalize 0", [](Settings& s) { s.normalize = 0; }}, {"standard scale 4", [](Settings& s) { s.scale = 4; }},
        {"standard alpha 1", [](Settings& s) { s.alpha = 1; }}, {"marlet rho_x 1", [&](Settings& s) { marlet(s), s.rho_x = 1; }},
        {"marlet normalize 0", [&](Settings& s) { marlet(s), s.normalize = 0; }},
        {"marlet scale 4", [&](Settings& s) { marlet(s), s.scale = 4; }},
        {"marlet k1 0 (safeguarded)", [&](Settings& s) { marlet(s), s.k1 = 0; }},
        {"marlet k1 0 k2 0 ls 4", [&](Settings& s) { marlet(s), s.k1 = s.k2 = 0, s.ls = 4, s.max_iters = 50; }},
        {"marlet ls 0 (plain)", [&](Settings& s) { marlet(s), s.ls = 0; }},
        {"marlet k0 1 ls 0 (blind)", [&](Settings& s) { marlet(s), s.k0 = 1, s.ls = 0, s.c_bl = 0.99; }},
        {"marlet k0 1 (blind, search)", [&](Settings& s) { marlet(s), s.k0 = 1; }},
        {"marlet memory 2", [&](Settings& s) { marlet(s), s.memory = 2; }},
        {"marlet sse 0.5", [&](Settings& s) { marlet(s), s.sse = 0.5; }},
        {"marlet dir 200", [&](Settings& s) { marlet(s), s.dir = KORVEX_DIR_FIXED_POINT_RESIDUAL; }},
        {"marlet dir 300", [&](Settings& s) { marlet(s), s.dir = KORVEX_DIR_FULL_BROYDEN; }},
        {"marlet warm_start 5", [&](Settings& s) { marlet(s), s.warm_start = 5; }},
    };
    std::string table;
    for (const auto& [variant, adjust] : variants) {
        for (const Problem& problem : everyProblem()) {
            if (variant != variants[0].first && variant != variants[1].first && problem.name != "mixed_all_families") continue;
            SCOPED_TRACE(problem.name + ", " + variant);
            SolveRun run(problem), again(problem);
            for (SolveRun* r : {&run, &again}) adjust(r->settings), r->settings.record_progress = 1;
            const int status = run.iterate();
            again.iterate();
            const std::size_t m = problem.m() * sizeof(double), n = problem.n() * sizeof(double);
            const Solution &a = run.solution, &b = again.solution;
            EXPECT_TRUE(!std::memcmp(a.x, b.x, n) && !std::memcmp(a.y, b.y, m) && !std::memcmp(a.s, b.s, m));
            const Settings& s = run.settings;
            const Info& info = run.info;
            ASSERT_NE(run.work, nullptr);
            EXPECT_EQ(status, info.iter < s.max_iters ? problem.status : KORVEX_SOLVED_INACCURATE);
            // Solves with the factors: the standard iteration makes g and one per iteration;
            // the Marlet iteration makes g and the first point, one for the direction of a
            // line search, and one for the new point unless the step was educated.
            long long solves = s.do_super_korvex ? 2 : 1 + std::min(info.iter + 1, s.max_iters);
            int kinds[4] = {0, 0, 0, 0};
            for (int k = 0; s.do_super_korvex && k < info.progress_count; ++k) {
                const int kind = info.progress_step_kind[k], trials = info.progress_ls_count[k];
                ++kinds[kind + 1];
                solves += (trials > 0) + (kind != 1);
                const bool searched = !(k < s.warm_start || kind == 0 || (kind == -1 && s.ls == 0));
                EXPECT_TRUE(!searched ? trials == 0 : kind == -1 ? trials == s.ls + 1 : trials >= 1 && trials <= s.ls) << k;
                EXPECT_EQ(info.progress_iteration[k], k);
            }
            EXPECT_TRUE((s.k0 || !kinds[1]) && ((s.k1 && s.ls) || !kinds[2]) && ((s.k2 && s.ls) || !kinds[3]));
            EXPECT_EQ(run.work->lin_sys->solve_count, solves);
            if (s.do_super_korvex && status == KORVEX_SOLVED) {
                // The stopping iteration keeps the figures that passed the test, and the point.
                const int k = info.iter;
                EXPECT_TRUE(info.progress_count == k && info.progress_iteration[k] == k && info.progress_fpr_norm[k] == run.work->fpr_norm);
                EXPECT_LT(std::max({info.progress_res_pri[k], info.progress_res_dual[k], info.progress_rel_gap[k]}), s.eps);
                EXPECT_TRUE(info.progress_primal_cost[k] == info.pobj && info.progress_dual_cost[k] == info.dobj &&
                            info.progress_time_ms[k] >= info.progress_time_ms[0]);
            }
            char row[200];
            const int length = std::snprintf(row, sizeof row, "%-24s %-28s %5d %3d %12.6f", problem.name.c_str(), variant,
                                             info.iter, info.statusVal, info.pobj);
            if (s.do_super_korvex) std::snprintf(row + length, sizeof row - length, "  steps %d/%d/%d/%d", kinds[0], kinds[1], kinds[2], kinds[3]);
            table += std::string(row) + "\n";
        }
    }
    expectGolden("core_gates", table);
}

TEST(Finish, WhatTheLastIterateLeansToAtTheLimitAndTheOrderOfTheTests) {
    // finishSolution at the limit (iter 100) on chosen figures, u all ones (or vanishing);
    // normalize 0 leaves the units alone.
    const struct { double tau, kap, c_dot_x, b_dot_y, u; int status; double pobj, x0, y0; } cases[] = {
        {2.0, 1.0, -2, -2, 1, KORVEX_SOLVED_INACCURATE, -1, 0.5, 0.5},  // x, y divided by tau
        {1e-9, 0, 1, -3, 1, KORVEX_INFEASIBLE_INACCURATE, kInf, kNaN, 1 / 3.0},  // tau 1e-9 is not enough; c'x > b'y
        {0.5, 0.5, -2, -2, 1, KORVEX_UNBOUNDED_INACCURATE, -kInf, 0.5, kNaN},  // tau not above kap; c'x = b'y
        {0, 0, -2, -2, 1e-10, KORVEX_INDETERMINATE, 7, kNaN, kNaN},  // |u| < sqrt(l) 1e-9; pobj left alone
    };
    auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        SolveRun run(knownProblems()[0]);
        run.settings.normalize = 0, run.settings.max_iters = 100;
        Work* work = run.work = initWork(&run.data, &run.cone);
        std::fill(work->u.get(), work->u.get() + work->l, c.u);
        Residuals r{100, 0.5, 0.5, 0.25, 0.25, 0.5, c.c_dot_x, c.b_dot_y, c.tau, c.kap};
        Info& info = run.info;
        info.pobj = 7.0;
        finishSolution(work, &run.solution, &info, &r, 100);
        EXPECT_TRUE(info.statusVal == c.status && !std::strcmp(info.status, statusText(c.status)) && info.iter == 100 &&
                    info.resInfeas == 0.25 && info.resUnbdd == 0.25);
        EXPECT_TRUE(same(info.pobj, c.pobj) && same(run.solution.x[0], c.x0) && same(run.solution.y[0], c.y0))
            << info.pobj << " " << run.solution.x[0] << " " << run.solution.y[0];
        if (c.status != KORVEX_INDETERMINATE) continue;
        // The stopping test: solved before unbounded before infeasible, strict, NaN never passes.
        run.settings.eps = 1e-3;
        r = Residuals{0, 1e-4, 1e-4, 1e-4, 1e-4, 1e-4, 0, 0, 1, 0};
        double* spoilt[] = {&r.rel_gap, &r.res_unbdd, &r.res_infeas};
        const int results[] = {KORVEX_SOLVED, KORVEX_UNBOUNDED, KORVEX_INFEASIBLE, KORVEX_RUNNING};
        for (int k = 0; k < 4; ++k) {
            EXPECT_EQ(testStopping(work, &r, 0), results[k]);
            if (k < 3) *spoilt[k] = k == 1 ? 1e-3 : kNaN;  // res_unbdd at eps is not below it
        }
    }
}

TEST(ProgressArrays, PreparationCodesAndResizing) {
    SolveRun run(knownProblems()[0]);
    Settings& s = run.settings;
    Work work{};
    work.settings = &s;
    s.record_progress = 1, s.max_iters = 50;
    Info& info = run.info;
    for (int k = 1; k <= 11; ++k) {  // the k-th failing gives -k, after the k - 1 arrays before it
        failAllocationAt(k);
        EXPECT_EQ(prepareProgressArrays(&info, &work), k <= 10 ? -k : 0);
        const void* arrays[] = {info.progress_rel_gap, info.progress_res_pri, info.progress_res_dual, info.progress_primal_cost,
                                info.progress_dual_cost, info.progress_iteration, info.progress_fpr_norm,
                                info.progress_time_ms, info.progress_step_kind, info.progress_ls_count};
        for (int j = 0; j < 10; ++j) EXPECT_EQ(arrays[j] != nullptr, j < k - 1) << k << " " << j;
        if (k <= 10) releaseProgressArrays(&info);
    }
    // Arrays of 50 entries grow to 100 and keep their rows; the k-th failing gives -100 - k.
    for (int k = 0; k < 50; ++k) info.progress_res_pri[k] = k + 0.25, info.progress_ls_count[k] = k;
    s.progress_capacity = 50, s.max_iters = 100;
    for (int k = 0; k <= 10; ++k) {
        failAllocationAt(k + 1);
        EXPECT_EQ(prepareProgressArrays(&info, &work), k < 10 ? -100 - k : 0);
    }
    for (int k = 0; k < 50; ++k) EXPECT_TRUE(info.progress_res_pri[k] == k + 0.25 && info.progress_ls_count[k] == k);
    info.progress_res_pri[99] = info.progress_time_ms[99] = 1.0;  // the sanitizer build checks that 100 entries exist
    // At equal capacity, with the capacity unknown, or without record_progress, nothing is
    // allocated.
    failAllocationAt(0);
    s.progress_capacity = 100;
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    s.progress_capacity = -1, s.max_iters = 1000;
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    releaseProgressArrays(&info);
    s.record_progress = 0;
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    EXPECT_TRUE(info.progress_rel_gap == nullptr && allocationCount() == 0);
}

}  // namespace
