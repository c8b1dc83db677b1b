// End-to-end solves with both iterations (the standard one and the Marlet iteration with
// the library's defaults): known optima of every cone family, certificates of
// infeasibility and unboundedness checked in the caller's units, bit-for-bit determinism.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/problems.h"
#include "core/solver.h"

namespace {

double relativeError(double value, double reference) { return std::fabs(value - reference) / (1 + std::fabs(reference)); }

double largestMagnitude(const std::vector<double>& v) {
    double largest = 0.0;
    for (double e : v) largest = std::max(largest, std::fabs(e));
    return largest;
}

// The parameter is do_super_korvex: 0 standard iteration, 1 Marlet iteration.
class Solve : public ::testing::TestWithParam<int> {
protected:
    void configure(SolveRun& run) const { run.settings.do_super_korvex = GetParam(); }
};

TEST_P(Solve, KnownOptimaOfEveryConeFamily) {
    for (int normalize : {1, 0}) {
        for (const Problem& problem : knownProblems()) {
            SCOPED_TRACE(problem.name + (normalize ? "" : " without normalisation"));
            SolveRun run(problem);
            configure(run);
            run.settings.normalize = normalize;
            ASSERT_EQ(run.solve(), KORVEX_SOLVED) << run.report;
            EXPECT_STREQ(run.info.status, "Solved");
            EXPECT_LT(relativeError(run.info.pobj, problem.objective), 1e-4);
            EXPECT_LT(relativeError(run.info.dobj, problem.objective), 1e-4);
            for (int j = 0; j < problem.n(); ++j) EXPECT_NEAR(run.solution.x[j], problem.x[j], 2e-3) << "x" << j;

            // The returned point is primal and dual feasible in the caller's units, with s
            // in K and y in K*, and the reported objectives are those of x and y.
            EXPECT_LT(largestMagnitude(primalResidual(run)), 1e-4);
            std::vector<double> dual = dualProduct(run);
            for (int j = 0; j < problem.n(); ++j) dual[j] += problem.c[j];
            EXPECT_LT(largestMagnitude(dual), 1e-4);
            EXPECT_LT(distanceToCone(run, run.solution.s), 1e-6);
            EXPECT_LT(distanceToDualCone(run, run.solution.y), 1e-6);
            EXPECT_NEAR(dot(problem.c, run.solution.x), run.info.pobj, 1e-6 * (1 + std::fabs(run.info.pobj)));
            EXPECT_NEAR(-dot(problem.b, run.solution.y), run.info.dobj, 1e-6 * (1 + std::fabs(run.info.dobj)));
            EXPECT_LT(std::max({run.info.resPri, run.info.resDual, run.info.relGap}), 1e-6);
            EXPECT_GT(run.info.iter, 0);
            EXPECT_LT(run.info.iter, run.settings.max_iters);
            // Only the Marlet iteration counts its iterations in progress_count.
            EXPECT_EQ(run.info.progress_count, GetParam() == 1 ? run.info.iter : 0);
        }
    }
}

// x >= 1 and x <= 0 (linear), and |(x1, x2)| <= 1 with x1 >= 2 (second order).
std::vector<Problem> infeasibleProblems() {
    Problem lp{"infeasible_lp"};
    lp.rows = {{-1}, {1}};
    lp.b = {-1, 0};
    lp.c = {1};
    lp.linear_vars = 2;
    Problem disc{"infeasible_disc"};
    disc.rows = {{-1, 0}, {0, 0}, {-1, 0}, {0, -1}};
    disc.b = {-2, 1, 0, 0};
    disc.c = {1, 1};
    disc.linear_vars = 1;
    disc.soc = {3};
    return {lp, disc};
}

// min -x on x >= 0, and min -x1 on |x2| <= x1 (a second-order cone of two entries).
std::vector<Problem> unboundedProblems() {
    Problem lp{"unbounded_lp"};
    lp.rows = {{-1}};
    lp.b = {0};
    lp.c = {-1};
    lp.linear_vars = 1;
    Problem wedge{"unbounded_wedge"};
    wedge.rows = {{-1, 0}, {0, -1}};
    wedge.b = {0, 0};
    wedge.c = {-1, 0};
    wedge.soc = {2};
    return {lp, wedge};
}

TEST_P(Solve, InfeasibleProblemsEndWithACertificate) {
    for (const Problem& problem : infeasibleProblems()) {
        SCOPED_TRACE(problem.name);
        SolveRun run(problem);
        configure(run);
        ASSERT_EQ(run.solve(), KORVEX_INFEASIBLE) << run.report;
        EXPECT_STREQ(run.info.status, "Infeasible");
        // b'y = -1, A'y = 0 and y in K*: no x can satisfy Ax + s = b with s in K.
        EXPECT_NEAR(dot(problem.b, run.solution.y), -1.0, 1e-9);
        EXPECT_LT(largestMagnitude(dualProduct(run)), 1e-5);
        EXPECT_LT(distanceToDualCone(run, run.solution.y), 1e-9);
        for (int j = 0; j < problem.n(); ++j) EXPECT_TRUE(std::isnan(run.solution.x[j]));
        for (int i = 0; i < problem.m(); ++i) EXPECT_TRUE(std::isnan(run.solution.s[i]));
        EXPECT_EQ(run.info.pobj, std::numeric_limits<double>::infinity());
        EXPECT_EQ(run.info.dobj, std::numeric_limits<double>::infinity());
        EXPECT_TRUE(std::isnan(run.info.resPri) && std::isnan(run.info.resDual) && std::isnan(run.info.relGap));
        EXPECT_LT(run.info.resInfeas, run.settings.eps);
        EXPECT_FALSE(run.info.resUnbdd < run.settings.eps);  // else the unbounded test would have come first
    }
}

TEST_P(Solve, UnboundedProblemsEndWithACertificate) {
    for (const Problem& problem : unboundedProblems()) {
        SCOPED_TRACE(problem.name);
        SolveRun run(problem);
        configure(run);
        ASSERT_EQ(run.solve(), KORVEX_UNBOUNDED) << run.report;
        EXPECT_STREQ(run.info.status, "Unbounded");
        // c'x = -1, Ax + s = 0 and s in K: a ray of ever better feasible points.
        EXPECT_NEAR(dot(problem.c, run.solution.x), -1.0, 1e-9);
        std::vector<double> ray(problem.m());
        for (int i = 0; i < problem.m(); ++i) ray[i] = primalResidual(run)[i] + problem.b[i];
        EXPECT_LT(largestMagnitude(ray), 1e-5);
        EXPECT_LT(distanceToCone(run, run.solution.s), 1e-9);
        for (int i = 0; i < problem.m(); ++i) EXPECT_TRUE(std::isnan(run.solution.y[i]));
        EXPECT_EQ(run.info.pobj, -std::numeric_limits<double>::infinity());
        EXPECT_EQ(run.info.dobj, -std::numeric_limits<double>::infinity());
        EXPECT_TRUE(std::isnan(run.info.resPri) && std::isnan(run.info.resDual) && std::isnan(run.info.relGap));
        EXPECT_LT(run.info.resUnbdd, run.settings.eps);
    }
}

TEST_P(Solve, TwoIdenticalSolvesGiveIdenticalBits) {
    const std::vector<Problem> problems = knownProblems();
    const Problem& problem = problems.back();  // every cone family at once
    SolveRun first(problem), second(problem);
    configure(first);
    configure(second);
    ASSERT_EQ(first.solve(), KORVEX_SOLVED);
    ASSERT_EQ(second.solve(), KORVEX_SOLVED);
    EXPECT_EQ(first.info.iter, second.info.iter);
    EXPECT_EQ(std::memcmp(first.solution.x, second.solution.x, sizeof(double) * problem.n()), 0);
    EXPECT_EQ(std::memcmp(first.solution.y, second.solution.y, sizeof(double) * problem.m()), 0);
    EXPECT_EQ(std::memcmp(first.solution.s, second.solution.s, sizeof(double) * problem.m()), 0);
}

INSTANTIATE_TEST_SUITE_P(BothIterations, Solve, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<int>& info) { return info.param ? "Marlet" : "Standard"; });

}  // namespace
