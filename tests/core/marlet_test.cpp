// The Marlet iteration: the step logic read from the progress history, the cost of each
// kind of step in solves, the history arrays themselves, and its report.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "core/solver.h"
#include "linsys/linsys.h"
#include "reporting/allocation.h"
#include "support/capture.h"
#include "support/problems.h"

namespace {

// A run with the library's defaults (Marlet iteration, restarted Broyden) at eps 1e-6.
void useDefaults(SolveRun& run) {
    setDefaultSettings(&run.settings);
    run.settings.verbose = 0;
    run.settings.eps = 1e-6;
    run.settings.max_iters = 50000;
}

// A Marlet solve that keeps its Work alive after the loop, to read the factorisation's
// count of solves, with the history recorded.
class MarletRun {
public:
    explicit MarletRun(const Problem& problem, void (*adjust)(Settings&)) : run_(problem) {
        useDefaults(run_);
        run_.settings.record_progress = 1;
        adjust(run_.settings);
        work_ = initWork(&run_.data, &run_.cone);
        if (work_ == nullptr) return;
        CapturedOutput out;
        status_ = runMarletIteration(work_, &run_.data, &run_.cone, &run_.solution, &run_.info);
        report_ = out.finish();
    }
    ~MarletRun() {
        freeWork(work_);
        releaseProgressArrays(&run_.info);
    }
    const Info& info() const { return run_.info; }
    long long solves() const { return work_->lin_sys->solve_count; }
    int status() const { return status_; }
    const Work* work() const { return work_; }
    const std::string& report() const { return report_; }

private:
    SolveRun run_;
    Work* work_ = nullptr;
    int status_ = 0;
    std::string report_;
};

// Solves with the factors an iteration costs by its step: one for the direction of a
// line search, and one for the new point unless the step was educated.
long long expectedSolves(const Info& info, bool searching) {
    long long solves = 2;  // g, and the first point
    for (int k = 0; k < info.progress_count; ++k) {
        const bool blind = info.progress_step_kind[k] == 0;
        solves += (searching && !blind) ? 1 : 0;
        solves += info.progress_step_kind[k] == 1 ? 0 : 1;
    }
    return solves;
}

int countKind(const Info& info, int kind) {
    int count = 0;
    for (int k = 0; k < info.progress_count; ++k) count += info.progress_step_kind[k] == kind ? 1 : 0;
    return count;
}

const Problem& mixedProblem() {
    static const Problem problem = knownProblems().back();
    return problem;
}

TEST(MarletSteps, NoSearchAndNoBlindStepGivesPlainStepsOnly) {
    MarletRun run(mixedProblem(), [](Settings& s) { s.ls = 0; s.k0 = 0; s.max_iters = 200; });
    ASSERT_GT(run.info().progress_count, 0);
    EXPECT_EQ(run.work()->wu.get(), nullptr);  // no line search, no trial vectors
    EXPECT_EQ(run.work()->Rwu.get(), nullptr);
    for (int k = 0; k < run.info().progress_count; ++k) {
        EXPECT_EQ(run.info().progress_step_kind[k], -1);
        EXPECT_EQ(run.info().progress_ls_count[k], 0);
    }
    EXPECT_EQ(run.solves(), expectedSolves(run.info(), false));
}

TEST(MarletSteps, WithoutAcceptanceRulesEveryTrialRunsAndFails) {
    MarletRun run(mixedProblem(), [](Settings& s) { s.k1 = 0; s.k2 = 0; s.ls = 4; s.max_iters = 50; });
    ASSERT_GT(run.info().progress_count, 0);
    for (int k = 0; k < run.info().progress_count; ++k) {
        EXPECT_EQ(run.info().progress_step_kind[k], -1);
        EXPECT_EQ(run.info().progress_ls_count[k], 5);  // ls + 1
    }
    EXPECT_EQ(run.solves(), expectedSolves(run.info(), true));
}

TEST(MarletSteps, EducatedStepsCostNoNewProjection) {
    MarletRun run(mixedProblem(), [](Settings&) {});
    ASSERT_EQ(run.status(), KORVEX_SOLVED);
    EXPECT_GT(countKind(run.info(), 1), 0);
    for (int k = 0; k < run.info().progress_count; ++k) {
        const int kind = run.info().progress_step_kind[k];
        const int trials = run.info().progress_ls_count[k];
        EXPECT_TRUE(kind == 1 || kind == 2 || kind == -1) << kind;
        EXPECT_TRUE((kind == -1 && trials == 11) || (kind != -1 && trials >= 1 && trials <= 10));
    }
    EXPECT_EQ(run.solves(), expectedSolves(run.info(), true));
}

TEST(MarletSteps, SafeguardedAndBlindStepsOccur) {
    MarletRun safeguarded(mixedProblem(), [](Settings& s) { s.k1 = 0; });
    EXPECT_GT(countKind(safeguarded.info(), 2), 0);
    EXPECT_EQ(countKind(safeguarded.info(), 1), 0);
    EXPECT_EQ(safeguarded.solves(), expectedSolves(safeguarded.info(), true));

    // Blind steps without a line search: the direction comes from the cache each time.
    MarletRun blind(mixedProblem(), [](Settings& s) { s.k0 = 1; s.ls = 0; s.c_bl = 0.99; });
    EXPECT_GT(countKind(blind.info(), 0), 0);
    for (int k = 0; k < blind.info().progress_count; ++k) EXPECT_EQ(blind.info().progress_ls_count[k], 0);
    EXPECT_EQ(blind.solves(), expectedSolves(blind.info(), false));
}

TEST(MarletSteps, BelowTheWarmStartIterationOnlyPlainSteps) {
    MarletRun run(mixedProblem(), [](Settings& s) { s.warm_start = 5; });
    // A warm start without a start point begins cold; the step logic waits for iteration 5.
    ASSERT_GT(run.info().progress_count, 6);
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(run.info().progress_step_kind[k], -1);
        EXPECT_EQ(run.info().progress_ls_count[k], 0);
    }
    EXPECT_NE(run.report().find("starting cold"), std::string::npos);
}

TEST(MarletSteps, ReservedDirectionEndsAtTheFirstDirection) {
    SolveRun run(knownProblems()[0]);
    useDefaults(run);
    run.settings.dir = KORVEX_DIR_RESTARTED_BROYDEN_V2;
    EXPECT_EQ(run.solve(), KORVEX_FAILED);
    EXPECT_EQ(run.info.iter, -1);
    EXPECT_EQ(run.report, "Failure:error in computeDirection\n");
}

// The history rows: eight figures at the top of an iteration, two at its end.
TEST(MarletHistory, RowsOfAStoppedSolve) {
    MarletRun run(knownProblems()[0], [](Settings&) {});
    const Info& info = run.info();
    const int last = info.progress_count;
    ASSERT_EQ(run.status(), KORVEX_SOLVED);
    EXPECT_EQ(last, info.iter);
    for (int k = 0; k <= last; ++k) EXPECT_EQ(info.progress_iteration[k], k);
    // The stopping iteration has its figures: they passed the test.
    EXPECT_LT(info.progress_res_pri[last], 1e-6);
    EXPECT_LT(info.progress_res_dual[last], 1e-6);
    EXPECT_LT(info.progress_rel_gap[last], 1e-6);
    EXPECT_NEAR(info.progress_primal_cost[last], info.pobj, 1e-9);
    EXPECT_GE(info.progress_time_ms[last], info.progress_time_ms[0]);
    EXPECT_EQ(info.progress_fpr_norm[last], run.work()->fpr_norm);
}

TEST(MarletHistory, PreparationCodesAndResizing) {
    Settings settings;
    setDefaultSettings(&settings);
    settings.record_progress = 1;
    settings.max_iters = 100;
    Work work{};
    work.settings = &settings;

    // Each missing array allocated in turn; the k-th failing gives -k.
    for (int k = 1; k <= 10; ++k) {
        Info info{};
        failAllocationAt(k);
        EXPECT_EQ(prepareProgressArrays(&info, &work), -k);
        failAllocationAt(0);
        releaseProgressArrays(&info);
    }

    // Arrays sized for 50 entries grow to 100 and keep their rows; growing fails with
    // -100 - k for the k-th array.
    Info info{};
    settings.max_iters = 50;
    ASSERT_EQ(prepareProgressArrays(&info, &work), 0);
    for (int k = 0; k < 50; ++k) info.progress_res_pri[k] = k + 0.25, info.progress_ls_count[k] = k;
    settings.progress_capacity = 50;
    settings.max_iters = 100;
    for (int k = 0; k < 10; ++k) {
        failAllocationAt(k + 1);
        EXPECT_EQ(prepareProgressArrays(&info, &work), -100 - k);
    }
    failAllocationAt(0);
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    for (int k = 0; k < 50; ++k) {
        EXPECT_EQ(info.progress_res_pri[k], k + 0.25);
        EXPECT_EQ(info.progress_ls_count[k], k);
    }
    info.progress_res_pri[99] = 1.0;  // the sanitizer build checks that 100 entries exist

    // At equal capacity, or with the capacity unknown, nothing is resized.
    settings.progress_capacity = 100;
    double* before = info.progress_res_pri;
    failAllocationAt(0);
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    EXPECT_EQ(allocationCount(), 0);
    settings.progress_capacity = -1;
    settings.max_iters = 1000;
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    EXPECT_EQ(info.progress_res_pri, before);
    releaseProgressArrays(&info);
    EXPECT_EQ(info.progress_res_pri, nullptr);

    // Without record_progress nothing is allocated.
    settings.record_progress = 0;
    EXPECT_EQ(prepareProgressArrays(&info, &work), 0);
    EXPECT_EQ(info.progress_rel_gap, nullptr);
}

TEST(MarletHistory, WithoutRecordingOnlyTheCountAndCapacity) {
    SolveRun run(knownProblems()[0]);
    useDefaults(run);
    ASSERT_EQ(run.solve(), KORVEX_SOLVED);
    EXPECT_EQ(run.info.progress_count, run.info.iter);
    EXPECT_EQ(run.settings.progress_capacity, run.settings.max_iters);
    EXPECT_EQ(run.info.progress_rel_gap, nullptr);
    EXPECT_EQ(run.info.progress_ls_count, nullptr);
    EXPECT_EQ(run.info.memory_bytes, 0);  // verbose 0: no estimate
}

TEST(Marlet, ReportWithTheFprColumnAndTheMemoryLine) {
    SolveRun run(knownProblems()[0]);
    useDefaults(run);
    run.settings.verbose = 1;
    ASSERT_EQ(run.solve(), KORVEX_SOLVED);
    EXPECT_NE(run.report.find("Running SuperKorvex...\nMemory: "), std::string::npos);
    EXPECT_NE(run.report.find("| kap/tau |   FPR   | time (s)\n"), std::string::npos);
    EXPECT_GT(run.info.memory_bytes, 0);
    EXPECT_LT(run.info.memory_bytes, 1000000);

    // A negative verbose prints the banner, the lines and the footer, but neither the
    // "Running" line, nor the memory line, nor the header.
    SolveRun quiet(knownProblems()[0]);
    useDefaults(quiet);
    quiet.settings.verbose = -1;
    ASSERT_EQ(quiet.solve(), KORVEX_SOLVED);
    EXPECT_NE(quiet.report.find("Tessel Conic Solver"), std::string::npos);
    EXPECT_NE(quiet.report.find("Status: Solved"), std::string::npos);
    EXPECT_NE(quiet.report.find("\n     0| "), std::string::npos);
    EXPECT_EQ(quiet.report.find("Running"), std::string::npos);
    EXPECT_EQ(quiet.report.find("Memory:"), std::string::npos);
    EXPECT_EQ(quiet.report.find(" Iter "), std::string::npos);
}

}  // namespace
