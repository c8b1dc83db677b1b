// How a solve ends when it cannot go on: an interrupt in the iteration or in the
// factorisation, every allocation of the set-up failing in turn, and the final status at
// the iteration limit.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "core/solver.h"
#include "reporting/allocation.h"
#include "support/capture.h"
#include "support/problems.h"

using namespace korvex;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// Solves the LP with its report tapped, pressing Ctrl+C as trigger is printed.
int solveInterruptedAt(SolveRun& run, const char* trigger, std::string* console) {
    run.settings.verbose = 1;
    ConsoleTap tap(trigger);
    const int status = solveConeProgram(&run.data, &run.cone, &run.solution, &run.info);
    *console = tap.finish();
    EXPECT_TRUE(tap.fired());
    return status;
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST(Failure, InterruptsInTheIterationAndInTheFactorisation) {
    // The header is printed once the iteration listens: its first check sees the key.
    SolveRun run(knownProblems()[0]);
    std::string console;
    EXPECT_EQ(solveInterruptedAt(run, " Iter ", &console), KORVEX_SIGINT);
    EXPECT_EQ(run.info.statusVal, KORVEX_SIGINT);
    EXPECT_STREQ(run.info.status, "Interrupted");
    EXPECT_EQ(run.info.iter, -1);
    EXPECT_TRUE(std::isnan(run.info.pobj) && std::isnan(run.info.resPri) && std::isnan(run.info.solveTime));
    EXPECT_TRUE(allNaN(run.solution.x, 2) && allNaN(run.solution.y, 4) && allNaN(run.solution.s, 4));
    EXPECT_NE(console.find("Failure:Interrupted\n"), std::string::npos);
    EXPECT_EQ(console.find("Status:"), std::string::npos);  // no footer after an interrupt

    // The last banner line comes before the factorisation, which says so once and fails.
    SolveRun factor(knownProblems()[0]);
    EXPECT_EQ(solveInterruptedAt(factor, "Variables n =", &console), KORVEX_FAILED);
    EXPECT_EQ(countOf(console, "interrupt detected in factorization\n"), 1u);
    EXPECT_STREQ(factor.info.status, "Failure");
    EXPECT_EQ(factor.info.iter, -1);
    EXPECT_NE(console.find("ERROR: initPriv failure\n"), std::string::npos);
    EXPECT_NE(console.find("Failure:could not initialize work\n"), std::string::npos);

    // The iteration clears the flag when it starts listening: a key pressed after the
    // factorisation and before the first iteration does not stop the solve.
    SolveRun between(knownProblems()[0]);
    EXPECT_EQ(solveInterruptedAt(between, "Setup time:", &console), KORVEX_SOLVED);
}

TEST(Failure, EveryAllocationOfTheSetupFailingInTurn) {
    // The allocations of each iteration in order: the Work record, its arrays, and for the
    // Marlet iteration the direction cache (its record and two arrays) and search vectors.
    auto messages = [](std::initializer_list<std::string> names) {
        std::vector<std::string> list;
        for (const std::string& name : names) {
            list.push_back(name == "work"    ? "ERROR: allocating work failure\n"
                           : name == "cache" ? "ERROR: allocating YSCache failure\nERROR: `su_cache` memory allocation failure\n"
                                             : "ERROR: `" + name + "` memory allocation failure\n");
        }
        return list;
    };
    const std::vector<std::string> standard =
        messages({"work", "u", "u_b", "v", "u_t", "u_prev", "h", "g", "pr", "dr", "b", "c"});
    const std::vector<std::string> marlet =
        messages({"work", "u", "u_b", "u_t", "u_prev", "h", "g", "pr", "dr", "b", "c", "R", "R_prev", "dir", "dut",
                  "s_b", "cache", "cache", "cache", "Sk", "Yk", "wu", "Rwu", "wu_t", "wu_b"});
    // Past the arrays of the standard iteration the later stages come in this order.
    const char* const later[] = {"ERROR: copy A matrix failed\n", "ERROR: normalizing A failed\n",
                                 "ERROR: initCone failure\n", "ERROR: initPriv failure\n"};
    const Problem problem = knownProblems()[3];  // a linear row and a second-order block
    for (int iteration : {0, 1}) {
        const std::vector<std::string>& messages = iteration ? marlet : standard;
        int stage = 0;
        long k = 1;
        for (;; ++k) {
            SCOPED_TRACE(testing::Message() << "iteration " << iteration << " allocation " << k);
            if (iteration == 1 && k > static_cast<long>(messages.size())) break;
            SolveRun run(problem);
            run.settings.do_super_korvex = iteration;
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
            if (k <= static_cast<long>(messages.size())) {
                EXPECT_EQ(run.report, messages[k - 1] + "Failure:could not initialize work\n");
                continue;
            }
            if (run.report.find("Failure:could not allocate the solution vectors\n") != std::string::npos) continue;
            while (stage < 4 && run.report.find(later[stage]) == std::string::npos) ++stage;
            ASSERT_LT(stage, 4) << run.report;
            EXPECT_EQ(run.report, std::string(later[stage]) + "Failure:could not initialize work\n");
        }
        if (iteration == 0) {
            EXPECT_EQ(stage, 3);  // every stage was reached, the factorisation last
            EXPECT_GT(k, 20);
        }
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
        r_.last_iter = 100;  // computed already: finishSolution keeps these figures
        r_.res_pri = r_.res_dual = r_.rel_gap = 0.5;
        r_.res_infeas = r_.res_unbdd = 0.25;
        r_.c_dot_x = r_.b_dot_y = -2.0;
        info_.statusVal = KORVEX_RUNNING;
    }
    void TearDown() override { freeWork(work_); }
    int finish(double tau, double kap) {
        r_.tau = tau;
        r_.kap = kap;
        finishSolution(work_, &run_->solution, &info_, &r_, 100);
        return info_.statusVal;
    }
    const Solution& solution() const { return run_->solution; }

    std::unique_ptr<SolveRun> run_;
    Work* work_ = nullptr;
    Residuals r_{};
    Info info_{};
};

TEST_F(FinishAtTheLimit, LeansToASolutionOnlyAboveTheThreshold) {
    EXPECT_EQ(finish(2.0, 1.0), KORVEX_SOLVED_INACCURATE);
    EXPECT_STREQ(info_.status, "Solved/Inaccurate");
    EXPECT_EQ(info_.iter, 100);
    EXPECT_EQ(solution().x[0], 0.5);  // divided by tau
    EXPECT_TRUE(info_.pobj == -1.0 && info_.dobj == 1.0);
}

TEST_F(FinishAtTheLimit, TauOfExactlyOneBillionthIsNotEnough) {
    r_.c_dot_x = 1.0;
    r_.b_dot_y = -3.0;  // c'x > b'y: the iterate leans to infeasibility
    EXPECT_EQ(finish(1e-9, 0.0), KORVEX_INFEASIBLE_INACCURATE);
    EXPECT_STREQ(info_.status, "Infeasible/Inaccurate");
    EXPECT_EQ(solution().y[0], 1.0 / 3.0);  // y scaled by -1 / b'y
    EXPECT_TRUE(std::isnan(solution().x[0]) && std::isnan(solution().s[0]));
    EXPECT_EQ(info_.pobj, kInf);
}

TEST_F(FinishAtTheLimit, EqualInnerProductsLeanToUnboundedness) {
    EXPECT_EQ(finish(0.5, 0.5), KORVEX_UNBOUNDED_INACCURATE);  // tau not above kap
    EXPECT_STREQ(info_.status, "Unbounded/Inaccurate");
    EXPECT_EQ(solution().x[0], 0.5);  // x scaled by -1 / c'x
    EXPECT_TRUE(std::isnan(solution().y[0]) && std::isnan(info_.resPri));
    EXPECT_EQ(info_.dobj, -kInf);
}

TEST_F(FinishAtTheLimit, VanishingIterateIsIndeterminate) {
    for (int k = 0; k < work_->l; ++k) work_->u[k] = 1e-10;  // |u| < sqrt(l) 1e-9
    info_.pobj = 7.0;                                        // left as it was
    EXPECT_EQ(finish(0.0, 0.0), KORVEX_INDETERMINATE);
    EXPECT_STREQ(info_.status, "Indeterminate");
    EXPECT_TRUE(info_.pobj == 7.0 && info_.resInfeas == 0.25 && info_.resUnbdd == 0.25);
    for (int i = 0; i < run_->data.m; ++i) EXPECT_TRUE(std::isnan(solution().y[i]));
}

TEST(Failure, StoppingTestOrder) {
    SolveRun run(knownProblems()[0]);
    Work work{};
    work.settings = &run.settings;
    run.settings.eps = 1e-3;
    Residuals r{};
    r.res_pri = r.res_dual = r.rel_gap = r.res_unbdd = r.res_infeas = 1e-4;
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_SOLVED);  // solved wins over unbounded
    r.rel_gap = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_UNBOUNDED);  // unbounded before infeasible
    r.res_unbdd = 1e-3;                                        // not strictly below eps
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_INFEASIBLE);
    r.res_infeas = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(testStopping(&work, &r, 0), KORVEX_RUNNING);
}

}  // namespace
