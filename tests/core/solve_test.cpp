// End-to-end solves with both iterations (the standard one and the Marlet iteration with
// the library's defaults): known optima of every cone family, certificates of
// infeasibility and unboundedness in the caller's units, bit-for-bit determinism.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "core/solver.h"
#include "support/problems.h"

using namespace korvex;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

double largestMagnitude(const std::vector<double>& v) {
    double largest = 0.0;
    for (double e : v) largest = std::max(largest, std::fabs(e));
    return largest;
}

// The parameter is do_super_korvex: 0 standard iteration, 1 Marlet iteration.
class Solve : public ::testing::TestWithParam<int> {
protected:
    // A run of problem with the iteration of the parameter, solved to the expected status.
    std::unique_ptr<SolveRun> solved(const Problem& problem, int status) {
        auto run = std::make_unique<SolveRun>(problem);
        run->settings.do_super_korvex = GetParam();
        EXPECT_EQ(run->solve(), status) << run->report;
        return run;
    }
};

TEST_P(Solve, KnownOptimaOfEveryConeFamily) {
    for (int normalize : {1, 0}) {
        for (const Problem& problem : knownProblems()) {
            SCOPED_TRACE(problem.name + (normalize ? "" : " without normalisation"));
            SolveRun run(problem);
            run.settings.do_super_korvex = GetParam();
            run.settings.normalize = normalize;
            ASSERT_EQ(run.solve(), KORVEX_SOLVED) << run.report;
            const Info& info = run.info;
            EXPECT_STREQ(info.status, "Solved");
            const double scale = 1 + std::fabs(problem.objective);
            EXPECT_LT(std::fabs(info.pobj - problem.objective) / scale, 1e-4);
            EXPECT_LT(std::fabs(info.dobj - problem.objective) / scale, 1e-4);
            for (int j = 0; j < problem.n(); ++j) EXPECT_NEAR(run.solution.x[j], problem.x[j], 2e-3) << "x" << j;
            // Primal and dual feasible in the caller's units, s in K and y in K*, and the
            // reported objectives are those of x and y.
            EXPECT_LT(largestMagnitude(primalResidual(run)), 1e-4);
            std::vector<double> dual = dualProduct(run);
            for (int j = 0; j < problem.n(); ++j) dual[j] += problem.c[j];
            EXPECT_LT(largestMagnitude(dual), 1e-4);
            EXPECT_LT(distanceToCone(run, run.solution.s), 1e-6);
            EXPECT_LT(distanceToDualCone(run, run.solution.y), 1e-6);
            EXPECT_NEAR(dot(problem.c, run.solution.x), info.pobj, 1e-6 * (1 + std::fabs(info.pobj)));
            EXPECT_NEAR(-dot(problem.b, run.solution.y), info.dobj, 1e-6 * (1 + std::fabs(info.dobj)));
            EXPECT_LT(std::max({info.resPri, info.resDual, info.relGap}), 1e-6);
            EXPECT_TRUE(info.iter > 0 && info.iter < run.settings.max_iters) << info.iter;
            // Only the Marlet iteration counts its iterations in progress_count.
            EXPECT_EQ(info.progress_count, GetParam() == 1 ? info.iter : 0);
        }
    }
}

TEST_P(Solve, InfeasibleProblemsEndWithACertificate) {
    for (const Problem& problem : infeasibleProblems()) {
        SCOPED_TRACE(problem.name);
        const auto run = solved(problem, KORVEX_INFEASIBLE);
        const Info& info = run->info;
        EXPECT_STREQ(info.status, "Infeasible");
        // b'y = -1, A'y = 0 and y in K*: no x can satisfy Ax + s = b with s in K.
        EXPECT_NEAR(dot(problem.b, run->solution.y), -1.0, 1e-9);
        EXPECT_LT(largestMagnitude(dualProduct(*run)), 1e-5);
        EXPECT_LT(distanceToDualCone(*run, run->solution.y), 1e-9);
        EXPECT_TRUE(allNaN(run->solution.x, problem.n()) && allNaN(run->solution.s, problem.m()));
        EXPECT_TRUE(info.pobj == kInf && info.dobj == kInf);
        EXPECT_TRUE(std::isnan(info.resPri) && std::isnan(info.resDual) && std::isnan(info.relGap));
        EXPECT_LT(info.resInfeas, run->settings.eps);
        EXPECT_FALSE(info.resUnbdd < run->settings.eps);  // else the unbounded test would have come first
    }
}

TEST_P(Solve, UnboundedProblemsEndWithACertificate) {
    for (const Problem& problem : unboundedProblems()) {
        SCOPED_TRACE(problem.name);
        const auto run = solved(problem, KORVEX_UNBOUNDED);
        const Info& info = run->info;
        EXPECT_STREQ(info.status, "Unbounded");
        // c'x = -1, Ax + s = 0 and s in K: a ray of ever better feasible points.
        EXPECT_NEAR(dot(problem.c, run->solution.x), -1.0, 1e-9);
        std::vector<double> ray = primalResidual(*run);
        for (int i = 0; i < problem.m(); ++i) ray[i] += problem.b[i];
        EXPECT_LT(largestMagnitude(ray), 1e-5);
        EXPECT_LT(distanceToCone(*run, run->solution.s), 1e-9);
        EXPECT_TRUE(allNaN(run->solution.y, problem.m()));
        EXPECT_TRUE(info.pobj == -kInf && info.dobj == -kInf);
        EXPECT_TRUE(std::isnan(info.resPri) && std::isnan(info.resDual) && std::isnan(info.relGap));
        EXPECT_LT(info.resUnbdd, run->settings.eps);
    }
}

TEST_P(Solve, TwoIdenticalSolvesGiveIdenticalBits) {
    const Problem problem = knownProblems().back();  // every cone family at once
    const auto first = solved(problem, KORVEX_SOLVED), second = solved(problem, KORVEX_SOLVED);
    EXPECT_EQ(first->info.iter, second->info.iter);
    EXPECT_EQ(std::memcmp(first->solution.x, second->solution.x, sizeof(double) * problem.n()), 0);
    EXPECT_EQ(std::memcmp(first->solution.y, second->solution.y, sizeof(double) * problem.m()), 0);
    EXPECT_EQ(std::memcmp(first->solution.s, second->solution.s, sizeof(double) * problem.m()), 0);
}

INSTANTIATE_TEST_SUITE_P(BothIterations, Solve, ::testing::Values(0, 1),
                         [](const ::testing::TestParamInfo<int>& info) { return info.param ? "Marlet" : "Standard"; });

}  // namespace
