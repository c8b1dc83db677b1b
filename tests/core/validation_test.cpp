// Every refusal of the validation, with its message and result; the warnings that let a
// solve run; the order in which faults are reported; NaN options passing.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "core/solver.h"
#include "core/validation.h"
#include "support/capture.h"
#include "support/problems.h"

using namespace korvex;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The LP of the known problems: m = 4, n = 2, four non-negative rows.
Problem lp() { return knownProblems()[0]; }

struct Outcome {
    int result;
    std::string text;
};

Outcome validate(SolveRun& run) {
    CapturedOutput out;
    const int result = validateProblem(&run.data, &run.cone);
    return {result, out.finish()};
}

struct OptionCase {
    const char* what;
    std::function<void(Settings&)> change;
    int result;
    const char* text;
};

void expectCases(const std::vector<OptionCase>& cases, int do_super_korvex) {
    for (const OptionCase& c : cases) {
        SCOPED_TRACE(c.what);
        SolveRun run(lp());
        run.settings.do_super_korvex = do_super_korvex;
        c.change(run.settings);
        const Outcome outcome = validate(run);
        EXPECT_EQ(outcome.result, c.result);
        EXPECT_EQ(outcome.text, c.text);
    }
}

TEST(Validation, OptionsOfEveryIteration) {
    expectCases({{"defaults", [](Settings&) {}, 0, ""},
                 {"max_iters", [](Settings& s) { s.max_iters = 0; }, -4, "max_iters must be positive (max_iters=0)\n"},
                 {"eps", [](Settings& s) { s.eps = -1e-3; }, -4, "eps tolerance must be positive (eps=-0.001)\n"},
                 {"eps zero", [](Settings& s) { s.eps = 0; }, -4, "eps tolerance must be positive (eps=0)\n"},
                 {"alpha 2", [](Settings& s) { s.alpha = 2; }, -4, "alpha must be in (0,2) (alpha=2)\n"},
                 {"alpha 0", [](Settings& s) { s.alpha = 0; }, -4, "alpha must be in (0,2) (alpha=0)\n"},
                 {"rho_x", [](Settings& s) { s.rho_x = 0; }, -4,
                  "rho_x must be positive (1e-3 works well) (rho_x=0).\n"},
                 {"scale", [](Settings& s) { s.scale = -2; }, -4,
                  "Parameter `scale` must be positive (1 works well).\n"},
                 {"do_super_korvex", [](Settings& s) { s.do_super_korvex = 2; }, -4,
                  "do_super_korvex (=2) can be either 0 or 1.\n"},
                 // alpha comes before rho_x
                 {"two faults", [](Settings& s) { s.rho_x = -1; s.alpha = 3; }, -4, "alpha must be in (0,2) (alpha=3)\n"},
                 // The Marlet options are not looked at by a standard solve.
                 {"absurd Marlet options", [](Settings& s) { s.ls = 1000; s.beta = 7; s.dir = 1; s.k0 = 9; }, 0, ""},
                 {"NaN options pass",
                  [](Settings& s) { s.eps = s.alpha = s.rho_x = s.scale = kNaN; }, 0, ""}},
                0);
}

TEST(Validation, OptionsOfTheMarletIteration) {
    expectCases(
        {{"defaults", [](Settings&) {}, 0, ""},
         {"thetabar", [](Settings& s) { s.thetabar = 1.5; }, -4,
          "Parameters `thetabar` must be a scalar between 0 and 1 (thetabar=1.5)\n"},
         {"thetabar bounds pass", [](Settings& s) { s.thetabar = 0; }, 0, ""},
         {"memory 1 with restarted Broyden", [](Settings& s) { s.memory = 1; }, -4,
          "Quasi-Newton memory length (mem=1) is too low; choose an integer at least equal to 2.\n"},
         {"memory 1 with kind 101", [](Settings& s) { s.memory = 1; s.dir = 101; }, -4,
          "Quasi-Newton memory length (mem=1) is too low; choose an integer at least equal to 2.\n"},
         {"memory 1 with the residual", [](Settings& s) { s.memory = 1; s.dir = 200; }, 0, ""},
         {"beta 1", [](Settings& s) { s.beta = 1; }, -4, "Stepsize reduction factor (beta=1) out of bounds.\n"},
         {"beta 0", [](Settings& s) { s.beta = 0; }, -4, "Stepsize reduction factor (beta=0) out of bounds.\n"},
         {"ls negative", [](Settings& s) { s.ls = -1; }, -4,
          "Illegal maximum number of line search iterations (ls=-1).\n"},
         {"ls 40", [](Settings& s) { s.ls = 40; }, -4,
          "WARNING! The value ls=40 is too high. The maximum allowed number of line search iteration is 40. We "
          "recommend a value about 10.\n"},
         {"ls 39 warns", [](Settings& s) { s.ls = 39; }, 0,
          "WARNING! The value ls=39 is too high. We highly recommendthe maximum number of line search iterations "
          "to be at most 10.\n"},
         {"ls 11 warns", [](Settings& s) { s.ls = 11; }, 0,
          "WARNING! The value ls=11 is too high. We highly recommendthe maximum number of line search iterations "
          "to be at most 10.\n"},
         {"ls 10 is silent", [](Settings& s) { s.ls = 10; }, 0, ""},
         {"sigma", [](Settings& s) { s.sigma = -0.5; }, -4,
          "Parameter sigma of the line search (sigma=-0.5) cannot be negative.\n"},
         {"beta before sigma", [](Settings& s) { s.sigma = -0.5; s.beta = 2; }, -4,
          "Stepsize reduction factor (beta=2) out of bounds.\n"},
         {"c_bl", [](Settings& s) { s.c_bl = 1; }, -4, "Parameter (c_0=1) for blind updates out of bounds.\n"},
         {"c1", [](Settings& s) { s.c1 = 1; }, -4, "Parameter (c1=1) for step K1 out of bounds.\n"},
         {"sse", [](Settings& s) { s.sse = 1; }, -4, "Parameter (sse=1) for step K1 out of bounds.\n"},
         {"zeros pass", [](Settings& s) { s.c_bl = s.c1 = s.sse = s.sigma = 0; }, 0, ""},
         {"k0", [](Settings& s) { s.k0 = 2; }, -4, "Parameter (k0=2) can be eiter 0 (k0: off) or 1 (k0: on).\n"},
         {"k1", [](Settings& s) { s.k1 = -1; }, -4, "Parameter (k1=-1) can be eiter 0 (k1: off) or 1 (k1: on).\n"},
         {"k2", [](Settings& s) { s.k2 = 5; }, -4, "Parameter (k2=5) can be eiter 0 (k2: off) or 1 (k2: on).\n"},
         {"dir", [](Settings& s) { s.dir = 150; }, -4, "Invalid direction (150).\n"},
         {"NaN options pass",
          [](Settings& s) { s.thetabar = s.beta = s.sigma = s.c_bl = s.c1 = s.sse = kNaN; }, 0, ""}},
        1);
}

TEST(Validation, DimensionsMatrixDataAndCone) {
    // Each case breaks one thing of a valid problem; the messages of the matrix come
    // before the line that names the step.
    const struct {
        const char* what;
        std::function<void(SolveRun&)> change;
        int result;
        const char* text;
    } cases[] = {
        {"m zero", [](SolveRun& r) { r.data.m = 0; }, -1, "m and n must both be greater than 0; m = 0, n = 2\n"},
        {"n negative", [](SolveRun& r) { r.data.n = -3; }, -1, "m and n must both be greater than 0; m = 4, n = -3\n"},
        {"values missing", [](SolveRun& r) { r.A.x = nullptr; }, -4,
         "data incompletely specified\ninvalid linear system input data\n"},
        {"pointers decreasing", [](SolveRun& r) { r.A.p[1] = 7; }, -4,
         "ERROR: A->p (column pointers) decreasing\ninvalid linear system input data\n"},
        {"first pointer", [](SolveRun& r) { r.A.p[0] = 1; }, -4,
         "ERROR: A->p[0] = 1, the first column must start at 0\ninvalid linear system input data\n"},
        {"row too large", [](SolveRun& r) { r.A.i[2] = 4; }, -4,
         "number of rows in A inconsistent with input dimension\ninvalid linear system input data\n"},
        {"row negative", [](SolveRun& r) { r.A.i[0] = -1; }, -4,
         "ERROR: A->i (row indices) negative\ninvalid linear system input data\n"},
        {"A of other dimensions", [](SolveRun& r) { r.A.m = 5; }, -4,
         "ERROR: A is 5 by 2, but m = 4 and n = 2\ninvalid linear system input data\n"},
        {"NaN in b", [](SolveRun& r) { r.data.b[2] = kNaN; }, -4,
         "ERROR: b[2] = nan is not a finite number\ninvalid linear system input data\n"},
        {"infinity in A", [](SolveRun& r) { r.A.x[1] = -INFINITY; }, -4,
         "ERROR: A->x[1] = -inf is not a finite number\ninvalid linear system input data\n"},
        {"cone too small", [](SolveRun& r) { r.cone.linear_vars = 3; }, -4,
         "cone dimensions 3 not equal to num rows in A = m = 4\ncone validation error\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        SolveRun run(lp());
        c.change(run);
        const Outcome outcome = validate(run);
        EXPECT_EQ(outcome.result, c.result);
        EXPECT_EQ(outcome.text, c.text);
    }
}

TEST(Validation, WarningsLetTheSolveRun) {
    // An empty column and fewer rows than columns: both warn, and the solve goes on.
    SolveRun run(Problem{.name = "wide", .rows = {{1, 0, 1}}, .b = {1}, .c = {1, 0, 1}, .linear_vars = 1});
    Outcome outcome = validate(run);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.text,
              "WARN: m less than n, problem likely degenerate\n"
              "WARN: A->p (column pointers) not strictly increasing, column 1 empty\n");

    // Anz = m n is the largest count that passes; one more (a duplicate) does not.
    SolveRun exact(Problem{.name = "full", .rows = {{1}}, .b = {1}, .c = {1}, .linear_vars = 1});
    EXPECT_EQ(validate(exact).result, 0);
    std::vector<double> values = {1, 1};
    std::vector<int> rows = {0, 0}, starts = {0, 2};
    exact.A = SparseMatrix{values.data(), rows.data(), starts.data(), 1, 1};
    outcome = validate(exact);
    EXPECT_EQ(outcome.result, -4);
    EXPECT_EQ(outcome.text, "Anz (nonzeros in A) = 2, outside of valid range\ninvalid linear system input data\n");
}

TEST(Validation, RefusedSolveStillDumpsTheSettingsAndFillsNaN) {
    SolveRun run(lp());
    run.settings.verbose = 2;
    run.settings.eps = -1;
    EXPECT_EQ(run.solve(), KORVEX_FAILED);
    const std::string head = "eps tolerance must be positive (eps=-1)\nERROR: Validation returned failure\nSettings:\n";
    EXPECT_EQ(run.report.substr(0, head.size()), head);
    const std::string tail = "warm_start   : 0\nFailure:could not initialize work\n";
    EXPECT_EQ(run.report.substr(run.report.size() - tail.size()), tail);
    EXPECT_EQ(run.info.iter, -1);
    EXPECT_STREQ(run.info.status, "Failure");
    EXPECT_TRUE(std::isnan(run.info.pobj) && std::isnan(run.info.solveTime));
    EXPECT_TRUE(allNaN(run.solution.x, 2) && allNaN(run.solution.y, 4) && allNaN(run.solution.s, 4));

    // Without Data, Cone or Info there is nothing to validate.
    CapturedOutput out;
    EXPECT_EQ(solveConeProgram(nullptr, &run.cone, &run.solution, &run.info), KORVEX_FAILED);
    EXPECT_EQ(out.finish(), "ERROR: Missing Data, Cone or Info input\nFailure:could not initialize work\n");
}

}  // namespace
