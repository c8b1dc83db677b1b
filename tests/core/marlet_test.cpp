// The Marlet iteration: the step logic read from the progress history, the cost of each
// kind of step in solves, the history arrays themselves, and its report.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/solver.h"
#include "linsys/linsys.h"
#include "reporting/allocation.h"
#include "support/capture.h"
#include "support/problems.h"

using namespace korvex;

namespace {

// The library's defaults (Marlet iteration, restarted Broyden) at eps 1e-6.
void useDefaults(SolveRun& run) {
    setDefaultSettings(&run.settings);
    run.settings.verbose = 0;
    run.settings.eps = 1e-6;
    run.settings.max_iters = 50000;
}

// A Marlet solve with its history recorded that keeps its Work, to read the count of
// solves with the factors.
class MarletRun {
public:
    MarletRun(const Problem& problem, void (*adjust)(Settings&)) : run_(problem) {
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
    int status() const { return status_; }
    const Work* work() const { return work_; }
    const std::string& report() const { return report_; }
    int count(int kind) const {
        return static_cast<int>(std::count(info().progress_step_kind, info().progress_step_kind + info().progress_count, kind));
    }
    // Solves with the factors by step: g and the first point, then one for the direction
    // of a line search, and one for the new point unless the step was educated.
    long long expectedSolves(bool searching) const {
        long long solves = 2;
        for (int k = 0; k < info().progress_count; ++k) {
            solves += (searching && info().progress_step_kind[k] != 0 ? 1 : 0) + (info().progress_step_kind[k] == 1 ? 0 : 1);
        }
        return solves;
    }

private:
    SolveRun run_;
    Work* work_ = nullptr;
    int status_ = 0;
    std::string report_;
};

TEST(MarletSteps, EachKindOfStepWithItsCostInSolves) {
    // Step kinds: -1 plain, 0 blind, 1 educated (no new projection), 2 safeguarded; the
    // first allowed kind must occur. trials: the line search count of every row, or -1
    // for ls + 1 = 11 on plain steps and 1 to 10 on the others.
    const struct {
        const char* what;
        void (*adjust)(Settings&);
        bool searching, solved;
        std::vector<int> allowed;
        int trials;
    } cases[] = {
        {"no search, no blind step", [](Settings& s) { s.ls = 0; s.k0 = 0; s.max_iters = 200; }, false, false, {-1}, 0},
        {"no acceptance rule: every trial runs and fails",
         [](Settings& s) { s.k1 = 0; s.k2 = 0; s.ls = 4; s.max_iters = 50; }, true, false, {-1}, 5},
        {"defaults: educated steps", [](Settings&) {}, true, true, {1, 2, -1}, -1},
        {"no educated step: safeguarded ones", [](Settings& s) { s.k1 = 0; }, true, false, {2, 0, -1}, -1},
        // The direction of a blind step comes from the cache each time.
        {"blind steps without a search", [](Settings& s) { s.k0 = 1; s.ls = 0; s.c_bl = 0.99; }, false, false,
         {0, -1, 1, 2}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MarletRun run(knownProblems().back(), c.adjust);
        const Info& info = run.info();
        ASSERT_GT(info.progress_count, 0);
        EXPECT_GT(run.count(c.allowed[0]), 0);
        EXPECT_TRUE(!c.solved || run.status() == KORVEX_SOLVED) << run.status();
        for (int k = 0; k < info.progress_count; ++k) {
            const int kind = info.progress_step_kind[k], trials = info.progress_ls_count[k];
            EXPECT_NE(std::find(c.allowed.begin(), c.allowed.end(), kind), c.allowed.end()) << kind;
            EXPECT_TRUE(c.trials >= 0 ? trials == c.trials : kind == -1 ? trials == 11 : trials >= 1 && trials <= 10)
                << kind << " " << trials;
        }
        EXPECT_EQ(run.work()->lin_sys->solve_count, run.expectedSolves(c.searching));
        if (c.searching) continue;
        EXPECT_EQ(run.work()->wu.get(), nullptr);  // no line search, no trial vectors
        EXPECT_EQ(run.work()->Rwu.get(), nullptr);
    }
}

TEST(MarletSteps, BelowTheWarmStartIterationOnlyPlainSteps) {
    // A warm start without a start point begins cold; the step logic waits for iteration 5.
    MarletRun run(knownProblems().back(), [](Settings& s) { s.warm_start = 5; });
    ASSERT_GT(run.info().progress_count, 6);
    for (int k = 0; k < 5; ++k) EXPECT_TRUE(run.info().progress_step_kind[k] == -1 && run.info().progress_ls_count[k] == 0);
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

TEST(MarletHistory, RowsOfAStoppedSolve) {
    // Eight figures at the top of an iteration, two at its end; the stopping iteration
    // has its figures, which passed the test.
    MarletRun run(knownProblems()[0], [](Settings&) {});
    const Info& info = run.info();
    const int last = info.progress_count;
    ASSERT_EQ(run.status(), KORVEX_SOLVED);
    EXPECT_EQ(last, info.iter);
    for (int k = 0; k <= last; ++k) EXPECT_EQ(info.progress_iteration[k], k);
    EXPECT_LT(std::max({info.progress_res_pri[last], info.progress_res_dual[last], info.progress_rel_gap[last]}), 1e-6);
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
    // Arrays of 50 entries grow to 100 and keep their rows; the k-th failing gives -100 - k.
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
    for (int k = 0; k < 50; ++k) EXPECT_TRUE(info.progress_res_pri[k] == k + 0.25 && info.progress_ls_count[k] == k);
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

TEST(Marlet, ReportAndCountsOfAQuietAndAVerboseSolve) {
    // Without recording only the count and capacity; verbose 0 makes no memory estimate.
    SolveRun run(knownProblems()[0]);
    useDefaults(run);
    ASSERT_EQ(run.solve(), KORVEX_SOLVED);
    EXPECT_EQ(run.info.progress_count, run.info.iter);
    EXPECT_EQ(run.settings.progress_capacity, run.settings.max_iters);
    EXPECT_TRUE(run.info.progress_rel_gap == nullptr && run.info.progress_ls_count == nullptr);
    EXPECT_EQ(run.info.memory_bytes, 0);

    SolveRun verbose(knownProblems()[0]);
    useDefaults(verbose);
    verbose.settings.verbose = 1;
    ASSERT_EQ(verbose.solve(), KORVEX_SOLVED);
    EXPECT_NE(verbose.report.find("Running SuperKorvex...\nMemory: "), std::string::npos);
    EXPECT_NE(verbose.report.find("| kap/tau |   FPR   | time (s)\n"), std::string::npos);
    EXPECT_TRUE(verbose.info.memory_bytes > 0 && verbose.info.memory_bytes < 1000000) << verbose.info.memory_bytes;

    // A negative verbose prints the banner, the lines and the footer, but neither the
    // "Running" line, nor the memory line, nor the header.
    SolveRun quiet(knownProblems()[0]);
    useDefaults(quiet);
    quiet.settings.verbose = -1;
    ASSERT_EQ(quiet.solve(), KORVEX_SOLVED);
    for (const char* part : {"Tessel Conic Solver", "Status: Solved", "\n     0| "}) {
        EXPECT_NE(quiet.report.find(part), std::string::npos) << part;
    }
    for (const char* part : {"Running", "Memory:", " Iter "}) EXPECT_EQ(quiet.report.find(part), std::string::npos) << part;
}

}  // namespace
