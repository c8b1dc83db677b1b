// How a solve ends when it cannot go on: an interrupt in the iteration or in the
// factorisation, every allocation of the set-up failing in turn, and the decisions of the
// final status at the iteration limit.
#include <gtest/gtest.h>

#include <csignal>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "core/solver.h"
#include "reporting/allocation.h"
#include "support/capture.h"
#include "support/problems.h"

namespace {

// A console stream that presses Ctrl+C (raises SIGINT) as soon as a given text is
// written to it, so that an interrupt lands at an exact point of a solve.
struct InterruptingStream {
    std::string trigger;
    std::string written;
    bool fired = false;
};

ssize_t writeAndInterrupt(void* cookie, const char* data, size_t size) {
    auto* stream = static_cast<InterruptingStream*>(cookie);
    stream->written.append(data, size);
    if (!stream->fired && stream->written.find(stream->trigger) != std::string::npos) {
        stream->fired = true;
        std::raise(SIGINT);
    }
    return static_cast<ssize_t>(size);
}

// Solves with the report going to a stream that interrupts at trigger.
int solveInterruptedAt(SolveRun& run, const char* trigger, std::string* console) {
    InterruptingStream stream;
    stream.trigger = trigger;
    cookie_io_functions_t functions{nullptr, writeAndInterrupt, nullptr, nullptr};
    std::FILE* file = fopencookie(&stream, "w", functions);
    std::setvbuf(file, nullptr, _IONBF, 0);
    run.settings.verbose = 1;
    run.settings.stream_override = 1;
    run.settings.output_stream = file;
    CapturedOutput err(stderr);
    const int status = solveConeProgram(&run.data, &run.cone, &run.solution, &run.info);
    *console = stream.written + err.finish();
    std::fclose(file);
    EXPECT_TRUE(stream.fired);
    return status;
}

TEST(Failure, InterruptDuringTheIterationEndsAsInterrupted) {
    SolveRun run(knownProblems()[0]);
    std::string console;
    // The header is printed once the iteration listens: the first check sees the key.
    EXPECT_EQ(solveInterruptedAt(run, " Iter ", &console), KORVEX_SIGINT);
    EXPECT_EQ(run.info.statusVal, KORVEX_SIGINT);
    EXPECT_STREQ(run.info.status, "Interrupted");
    EXPECT_EQ(run.info.iter, -1);
    EXPECT_TRUE(std::isnan(run.info.pobj) && std::isnan(run.info.resPri) && std::isnan(run.info.solveTime));
    for (int j = 0; j < run.data.n; ++j) EXPECT_TRUE(std::isnan(run.solution.x[j]));
    for (int i = 0; i < run.data.m; ++i) EXPECT_TRUE(std::isnan(run.solution.y[i]) && std::isnan(run.solution.s[i]));
    EXPECT_NE(console.find("Failure:Interrupted\n"), std::string::npos);
    EXPECT_EQ(console.find("Status:"), std::string::npos);  // no footer after an interrupt
}

TEST(Failure, InterruptDuringTheFactorisationEndsAsAFailure) {
    SolveRun run(knownProblems()[0]);
    std::string console;
    CapturedOutput out;  // the factorisation's own message goes to standard output
    // The last banner line comes before the factorisation.
    EXPECT_EQ(solveInterruptedAt(run, "Variables n =", &console), KORVEX_FAILED);
    EXPECT_EQ(out.finish(), "interrupt detected in factorization\n");
    EXPECT_STREQ(run.info.status, "Failure");
    EXPECT_EQ(run.info.iter, -1);
    EXPECT_NE(console.find("ERROR: initPriv failure\n"), std::string::npos);
    EXPECT_NE(console.find("Failure:could not initialize work\n"), std::string::npos);
}

TEST(Failure, InterruptBetweenSetupAndIterationIsForgotten) {
    // The iteration clears the flag when it starts listening, so a key pressed after the
    // factorisation and before the first iteration does not stop the solve.
    SolveRun run(knownProblems()[0]);
    std::string console;
    EXPECT_EQ(solveInterruptedAt(run, "Setup time:", &console), KORVEX_SOLVED);
}

// The failure message of each allocation of the set-up, in order, for a problem without
// semidefinite blocks solved by the standard iteration.
const char* const kSetupMessages[] = {
    "ERROR: allocating work failure\n",      "ERROR: `u` memory allocation failure\n",
    "ERROR: `u_b` memory allocation failure\n", "ERROR: `v` memory allocation failure\n",
    "ERROR: `u_t` memory allocation failure\n", "ERROR: `u_prev` memory allocation failure\n",
    "ERROR: `h` memory allocation failure\n",   "ERROR: `g` memory allocation failure\n",
    "ERROR: `pr` memory allocation failure\n",  "ERROR: `dr` memory allocation failure\n",
    "ERROR: `b` memory allocation failure\n",   "ERROR: `c` memory allocation failure\n",
};

TEST(Failure, EveryAllocationOfTheSetupFailingInTurn) {
    const Problem problem = knownProblems()[3];  // a linear row and a second-order block
    const char* const later[] = {"ERROR: copy A matrix failed\n", "ERROR: normalizing A failed\n",
                                 "ERROR: initCone failure\n", "ERROR: initPriv failure\n"};
    int stage = 0;  // index into later: the stages come in this order
    long k = 1;
    for (;; ++k) {
        SCOPED_TRACE(k);
        SolveRun run(problem);
        failAllocationAt(k);
        const int status = run.solve();
        const bool fired = allocationFailureFired();
        failAllocationAt(0);
        if (!fired) {
            EXPECT_EQ(status, KORVEX_SOLVED);
            break;
        }
        EXPECT_EQ(status, KORVEX_FAILED);
        EXPECT_EQ(run.info.iter, -1);
        EXPECT_STREQ(run.info.status, "Failure");
        if (k <= 12) {
            EXPECT_EQ(run.report, std::string(kSetupMessages[k - 1]) + "Failure:could not initialize work\n");
            continue;
        }
        if (run.report.find("Failure:could not allocate the solution vectors\n") != std::string::npos) continue;
        while (stage < 4 && run.report.find(later[stage]) == std::string::npos) ++stage;
        ASSERT_LT(stage, 4) << run.report;
        EXPECT_EQ(run.report, std::string(later[stage]) + "Failure:could not initialize work\n");
    }
    EXPECT_EQ(stage, 3);  // every stage was reached, the factorisation last
    EXPECT_GT(k, 20);
}

TEST(Failure, EveryAllocationOfTheMarletSetupFailingInTurn) {
    // The same road with the Marlet arrays: no v, then the iteration's own vectors, the
    // direction cache (its record and two arrays) and the line-search vectors.
    const char* const expected[] = {
        "ERROR: allocating work failure\n", "ERROR: `u` memory allocation failure\n",
        "ERROR: `u_b` memory allocation failure\n", "ERROR: `u_t` memory allocation failure\n",
        "ERROR: `u_prev` memory allocation failure\n", "ERROR: `h` memory allocation failure\n",
        "ERROR: `g` memory allocation failure\n", "ERROR: `pr` memory allocation failure\n",
        "ERROR: `dr` memory allocation failure\n", "ERROR: `b` memory allocation failure\n",
        "ERROR: `c` memory allocation failure\n", "ERROR: `R` memory allocation failure\n",
        "ERROR: `R_prev` memory allocation failure\n", "ERROR: `dir` memory allocation failure\n",
        "ERROR: `dut` memory allocation failure\n", "ERROR: `s_b` memory allocation failure\n",
        "ERROR: allocating YSCache failure\nERROR: `su_cache` memory allocation failure\n",
        "ERROR: allocating YSCache failure\nERROR: `su_cache` memory allocation failure\n",
        "ERROR: allocating YSCache failure\nERROR: `su_cache` memory allocation failure\n",
        "ERROR: `Sk` memory allocation failure\n", "ERROR: `Yk` memory allocation failure\n",
        "ERROR: `wu` memory allocation failure\n", "ERROR: `Rwu` memory allocation failure\n",
        "ERROR: `wu_t` memory allocation failure\n", "ERROR: `wu_b` memory allocation failure\n",
    };
    const Problem problem = knownProblems()[3];
    for (long k = 1; k <= 25; ++k) {
        SCOPED_TRACE(k);
        SolveRun run(problem);
        run.settings.do_super_korvex = 1;
        failAllocationAt(k);
        EXPECT_EQ(run.solve(), KORVEX_FAILED);
        failAllocationAt(0);
        EXPECT_EQ(run.report, std::string(expected[k - 1]) + "Failure:could not initialize work\n");
    }
}

// A Work of a real set-up whose residual record is filled by hand, so that
// finishSolution decides on chosen figures. normalize is 0: no units to undo.
class FinishAtTheLimit : public ::testing::Test {
protected:
    void SetUp() override {
        run_ = std::make_unique<SolveRun>(knownProblems()[0]);
        run_->settings.normalize = 0;
        run_->settings.max_iters = 100;
        work_ = initWork(&run_->data, &run_->cone);
        ASSERT_NE(work_, nullptr);
        for (int k = 0; k < work_->l; ++k) work_->u[k] = 1.0;
        residuals_.last_iter = 100;  // computed already: finishSolution keeps these figures
        residuals_.res_pri = residuals_.res_dual = residuals_.rel_gap = 0.5;
        residuals_.res_infeas = residuals_.res_unbdd = 0.25;
        residuals_.c_dot_x = -2.0;
        residuals_.b_dot_y = -2.0;
        info_.statusVal = KORVEX_RUNNING;
    }
    void TearDown() override { freeWork(work_); }

    int finish() {
        finishSolution(work_, &run_->solution, &info_, &residuals_, 100);
        return info_.statusVal;
    }

    std::unique_ptr<SolveRun> run_;
    Work* work_ = nullptr;
    Residuals residuals_{};
    Info info_{};
};

TEST_F(FinishAtTheLimit, LeansToASolutionOnlyAboveTheThreshold) {
    residuals_.tau = 2.0;
    residuals_.kap = 1.0;
    EXPECT_EQ(finish(), KORVEX_SOLVED_INACCURATE);
    EXPECT_STREQ(info_.status, "Solved/Inaccurate");
    EXPECT_EQ(info_.iter, 100);
    EXPECT_EQ(run_->solution.x[0], 0.5);  // divided by tau
    EXPECT_EQ(info_.pobj, -1.0);
    EXPECT_EQ(info_.dobj, 1.0);
}

TEST_F(FinishAtTheLimit, TauOfExactlyOneBillionthIsNotEnough) {
    residuals_.tau = 1e-9;
    residuals_.kap = 0.0;
    residuals_.c_dot_x = 1.0;
    residuals_.b_dot_y = -3.0;  // c'x > b'y: the iterate leans to infeasibility
    EXPECT_EQ(finish(), KORVEX_INFEASIBLE_INACCURATE);
    EXPECT_STREQ(info_.status, "Infeasible/Inaccurate");
    EXPECT_EQ(run_->solution.y[0], 1.0 / 3.0);  // y scaled by -1 / b'y
    EXPECT_TRUE(std::isnan(run_->solution.x[0]) && std::isnan(run_->solution.s[0]));
    EXPECT_EQ(info_.pobj, std::numeric_limits<double>::infinity());
}

TEST_F(FinishAtTheLimit, EqualInnerProductsLeanToUnboundedness) {
    residuals_.tau = 0.5;
    residuals_.kap = 0.5;  // tau not above kap
    EXPECT_EQ(finish(), KORVEX_UNBOUNDED_INACCURATE);
    EXPECT_STREQ(info_.status, "Unbounded/Inaccurate");
    EXPECT_EQ(run_->solution.x[0], 0.5);  // x scaled by -1 / c'x
    EXPECT_TRUE(std::isnan(run_->solution.y[0]));
    EXPECT_EQ(info_.dobj, -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(info_.resPri));
}

TEST_F(FinishAtTheLimit, VanishingIterateIsIndeterminate) {
    for (int k = 0; k < work_->l; ++k) work_->u[k] = 1e-10;  // |u| < sqrt(l) 1e-9
    residuals_.tau = 0.0;
    residuals_.kap = 0.0;
    info_.pobj = 7.0;  // left as it was
    EXPECT_EQ(finish(), KORVEX_INDETERMINATE);
    EXPECT_STREQ(info_.status, "Indeterminate");
    EXPECT_EQ(info_.pobj, 7.0);
    EXPECT_EQ(info_.resInfeas, 0.25);
    EXPECT_EQ(info_.resUnbdd, 0.25);
    for (int i = 0; i < run_->data.m; ++i) EXPECT_TRUE(std::isnan(run_->solution.y[i]));
}

TEST(Failure, StoppingTestOrder) {
    SolveRun run(knownProblems()[0]);
    Work work{};
    work.settings = &run.settings;
    run.settings.eps = 1e-3;
    Residuals r{};
    r.res_pri = r.res_dual = r.rel_gap = 1e-4;
    r.res_unbdd = r.res_infeas = 1e-4;
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_SOLVED);  // solved wins over unbounded
    r.rel_gap = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_UNBOUNDED);  // unbounded before infeasible
    r.res_unbdd = 1e-3;                                        // not strictly below eps
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_INFEASIBLE);
    r.res_infeas = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_RUNNING);
}

}  // namespace
