// KorvexLinkSolve through the built library: every cone family against the direct solve,
// the options by position, stored failures, refusals that leave the store alone, repeated
// solves, a missing instance, warm start, failing host calls and an interrupt.
#include <csignal>
#include <cmath>

#include "link/link_fixture.h"

using namespace korvex;

namespace {

using LinkSolve = LinkTest;

TEST_F(LinkSolve, EveryConeFamilyMatchesTheDirectSolveBitForBit) {
    // The same problem solved in this process through the core is the reference: the link
    // must hand every value on unchanged, each through its own accessor. The LP's empty
    // tensors at positions 6, 7 and 10 must give no blocks (the stand-in host has no data
    // for them, and a block more would leave m and the cone apart).
    const struct {
        KorvexLinkFunction KorvexLink::*accessor;
        double Info::*field;
    } reals[] = {{&KorvexLink::ret_pobj, &Info::pobj},           {&KorvexLink::ret_dobj, &Info::dobj},
                 {&KorvexLink::ret_resPri, &Info::resPri},       {&KorvexLink::ret_resDual, &Info::resDual},
                 {&KorvexLink::ret_resInfeas, &Info::resInfeas}, {&KorvexLink::ret_resUnbdd, &Info::resUnbdd},
                 {&KorvexLink::ret_relGap, &Info::relGap}};
    for (const Problem& problem : knownProblems()) {
        SCOPED_TRACE(problem.name);
        SolveRun direct(problem);
        direct.settings = linkTestSettings();
        ASSERT_EQ(direct.solve(), KORVEX_SOLVED);
        const standin::HostProblem host_problem(coneProgram(problem));
        const std::int32_t id = createInstance();
        ASSERT_EQ(solve(id, host_problem, linkTestSettings()), KORVEX_SOLVED);
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), direct.info.iter);
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SOLVED);
        EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "Solved");
        for (const auto& real : reals) {
            const double value = field<double>(real.accessor, id), want = direct.info.*real.field;
            EXPECT_TRUE((std::isnan(value) && std::isnan(want)) || value == want) << value << " vs " << want;
        }
        EXPECT_NEAR(field<double>(&KorvexLink::ret_pobj, id), problem.objective, 1e-4 * (1 + std::fabs(problem.objective)));
        // Times are measured anew: only their kind is known, milliseconds of this solve.
        const double setup = field<double>(&KorvexLink::ret_setupTime, id);
        const double solve_time = field<double>(&KorvexLink::ret_solveTime, id);
        EXPECT_TRUE(setup > 0.0 && solve_time > 0.0 && setup + solve_time < 60000.0) << setup << " " << solve_time;
        const int m = problem.m(), n = problem.n();
        EXPECT_EQ(vector(&KorvexLink::ret_x, id), std::vector<double>(direct.solution.x, direct.solution.x + n));
        EXPECT_EQ(vector(&KorvexLink::ret_y, id), std::vector<double>(direct.solution.y, direct.solution.y + m));
        EXPECT_EQ(vector(&KorvexLink::ret_s, id), std::vector<double>(direct.solution.s, direct.solution.s + m));
        EXPECT_EQ(deleteInstance(id), 0);
    }
}

TEST_F(LinkSolve, EachOptionIsReadFromItsPosition) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    // The text at position 31 goes through the core's directionCode (tested in full
    // there): a known name gives its code, an unknown one the default kind.
    for (const auto& [direction, code] : {std::pair{"full_broyden", "300"}, std::pair{"anderson", "100"}}) {
        standin::SolveArguments arguments(id, problem, linkTestSettings(), "restarted_broyden");
        // Distinct values at the host's positions, independent of the stand-in host's table;
        // note k1 and k2 before c_bl. verbose 2 dumps the settings.
        const std::pair<int, int> integers[] = {{11, 0}, {14, 1234}, {19, 2}, {21, 0}, {22, 1},
                                                {23, 0}, {24, 1},    {28, 7}, {33, 9}};
        const std::pair<int, double> reals[] = {{12, 2.5},   {13, 0.03125}, {16, 0.0625}, {17, 1.25},
                                                {18, 3.5},   {25, 0.875},   {26, 0.625},  {27, 0.75},
                                                {29, 0.375}, {30, 0.125},   {32, 0.3125}};
        for (auto [position, value] : integers) arguments.setInteger(position, value);
        for (auto [position, value] : reals) arguments.setReal(position, value);
        arguments.setText(31, direction);
        ConsoleTap console;
        ASSERT_EQ(solve(arguments), KORVEX_SOLVED);
        const std::string text = console.finish();
        EXPECT_NE(text.find("Settings:\nalpha        : 1.25\nbeta         : 0.375\nc1           : 0.625\n"
                            "c_bl         : 0.875\ncg_rate      : 3.5\ndir          : " + std::string(code) +
                            "\ndo_super_korvex : 0\neps          : 0.0625\n(k0, k1, k2) : (1, 0, 1)\n"
                            "ls           : 7\nmax_iters    : 1234\nmemory       : 9\nnormalize    : 0\n"
                            "rho_x        : 0.03125\nscale        : 2.5\nsigma        : 0.125\nsse          : 0.75\n"
                            "thetabar     : 0.3125\nwarm_start   : 0\n"),
                  std::string::npos);
        // Standard output whatever the host wanted: the whole report came through stdout.
        EXPECT_NE(text.find("Status: Solved"), std::string::npos);
    }
}

TEST_F(LinkSolve, AFailedSolveIsStoredWithNaNVectors) {
    // Refused by the validation of the solve, not by the link: eps -1, and a row index 0,
    // which is no row of a one-based host array.
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    HostSparse row_zero = standin::newSparse(4, {0, 2, 4}, {0, 2, 1, 4}, {1, 3, 2, 1});
    for (bool bad_rows : {false, true}) {
        const std::int32_t id = createInstance();
        Settings settings = linkTestSettings();
        if (!bad_rows) settings.eps = -1.0;
        standin::SolveArguments arguments(id, problem, settings, "restarted_broyden");
        if (bad_rows) arguments.setSparse(3, row_zero);
        ConsoleTap console;
        EXPECT_EQ(solve(arguments), KORVEX_FAILED);
        EXPECT_NE(console.finish().find("Failure:could not initialize work\n"), std::string::npos);
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_FAILED);
        EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "Failure");
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), -1);
        EXPECT_TRUE(std::isnan(field<double>(&KorvexLink::ret_pobj, id)));
        const std::vector<double> x = vector(&KorvexLink::ret_x, id), y = vector(&KorvexLink::ret_y, id),
                                  s = vector(&KorvexLink::ret_s, id);
        EXPECT_TRUE(x.size() == 2 && y.size() == 4 && s.size() == 4 && allNaN(x.data(), 2) && allNaN(y.data(), 4) &&
                    allNaN(s.data(), 4));
    }
    standin::freeSparse(row_zero);
}

TEST_F(LinkSolve, MalformedSparseArraysAreRefusedAndTheEarlierResultStays) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));  // n = 2, 6 stored values
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    const std::vector<double> x = vector(&KorvexLink::ret_x, id);
    const double pobj = field<double>(&KorvexLink::ret_pobj, id);
    const long tensors = standin::liveTensorCount();
    const std::vector<std::int32_t> starts = {0, 3, 6}, rows = {1, 2, 3, 1, 2, 4};
    const std::vector<double> values = {1, 3, -1, 2, 1, -1};
    const struct {
        const char* what;
        std::vector<std::int32_t> starts, indices;
        std::vector<double> values;
    } malformed[] = {
        {"starts one short", {0, 3}, rows, values},
        {"starts one long", {0, 3, 6, 6}, rows, values},
        {"no stored value", {0, 0, 0}, {}, {}},
        {"indices one short", starts, {1, 2, 3, 1, 2}, values},
        {"indices one long", starts, {1, 2, 3, 1, 2, 4, 4}, values},
        {"values one short", starts, rows, {1, 3, -1, 2, 1}},
        {"values one long", starts, rows, {1, 3, -1, 2, 1, -1, 5}},
    };
    for (const auto& entry : malformed) {
        SCOPED_TRACE(entry.what);
        HostSparse A = standin::newSparse(4, entry.starts, entry.indices, entry.values);
        standin::SolveArguments arguments(id, problem, linkTestSettings(), "restarted_broyden");
        arguments.setSparse(3, A);
        ConsoleTap console;
        EXPECT_EQ(solve(arguments), KORVEX_FAILED);
        EXPECT_EQ(console.finish(), "");  // a refusal prints nothing
        standin::freeSparse(A);
        EXPECT_EQ(standin::liveTensorCount(), tensors);  // every clone freed
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SOLVED);
        EXPECT_EQ(field<double>(&KorvexLink::ret_pobj, id), pobj);
        EXPECT_EQ(vector(&KorvexLink::ret_x, id), x);
    }
}

TEST_F(LinkSolve, ASecondSolveUnderOneIdReplacesTheFirst) {
    const Problem disc = knownProblems()[2];
    const standin::HostProblem first(coneProgram(knownProblems()[0])), second(coneProgram(disc));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, first, linkTestSettings()), KORVEX_SOLVED);
    const long held = standin::liveTensorCount();
    ASSERT_EQ(solve(id, second, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(standin::liveTensorCount(), held);  // the old vectors went
    EXPECT_NEAR(field<double>(&KorvexLink::ret_pobj, id), disc.objective, 1e-4);
    EXPECT_EQ(vector(&KorvexLink::ret_y, id).size(), 3u);
    EXPECT_EQ(idList(), std::vector<std::int32_t>{id});
}

TEST_F(LinkSolve, WithoutAnInstanceNothingIsSolvedOrStored) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const long tensors = standin::liveTensorCount();
    ConsoleTap console;
    EXPECT_EQ(solve(404, problem, linkTestSettings()), KORVEX_FAILED);
    EXPECT_EQ(console.finish(), "ERROR: no solution instance for id 404\n");
    EXPECT_TRUE(idList().empty());
    EXPECT_EQ(standin::liveTensorCount(), tensors);
}

TEST_F(LinkSolve, WarmStartWithoutAStartPointStartsCold) {
    // The link has no start point to offer: the solve says so and starts cold. The
    // standard iteration then runs exactly as without warm_start; the Marlet iteration
    // still reads the value as the first iteration of its step logic.
    const standin::HostProblem problem(coneProgram(knownProblems()[3]));
    for (const int iteration : {0, 1}) {
        SCOPED_TRACE(iteration);
        Settings settings = linkTestSettings();
        settings.do_super_korvex = iteration;
        const std::int32_t cold = createInstance(), warm = createInstance();
        ASSERT_EQ(solve(cold, problem, settings), KORVEX_SOLVED);
        settings.warm_start = 1;
        ConsoleTap console;
        ASSERT_EQ(solve(warm, problem, settings), KORVEX_SOLVED);
        EXPECT_NE(console.finish().find("WARNING: warm start requested without a start point, starting cold\n"),
                  std::string::npos);
        if (iteration == 1) continue;
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, warm), field<std::int32_t>(&KorvexLink::ret_iter, cold));
        EXPECT_EQ(vector(&KorvexLink::ret_x, warm), vector(&KorvexLink::ret_x, cold));
    }
}

TEST_F(LinkSolve, FailingHostCallsRefuseTheSolveOrLeaveAVectorOut) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    const long tensors = standin::liveTensorCount();
    // The five tensor clones in turn, then the sparse clone.
    for (int k = 1; k <= 6; ++k) {
        SCOPED_TRACE(k);
        standin::failCallAt(k <= 5 ? standin::HostCall::TensorClone : standin::HostCall::SparseClone, k <= 5 ? k : 1);
        EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_FAILED);
        standin::clearFailures();
        EXPECT_EQ(standin::liveTensorCount(), tensors);
        EXPECT_EQ(standin::liveSparseCount(), 1);  // the problem's own
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SOLVED);
    }

    // A new tensor the host cannot make: x, then y fails, and y alone is not stored.
    standin::failCallAt(standin::HostCall::TensorNew, 2);
    ConsoleTap console;
    EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(console.finish(), "WARNING: the host could not hold the vector y (code 17); it is not stored\n");
    bool present = true;
    EXPECT_EQ(vector(&KorvexLink::ret_y, id, &present).size(), 0u);
    EXPECT_FALSE(present);
    EXPECT_EQ(vector(&KorvexLink::ret_x, id).size(), 2u);
    EXPECT_EQ(vector(&KorvexLink::ret_s, id).size(), 4u);
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SOLVED);
}

volatile std::sig_atomic_t host_sigint_calls = 0;
extern "C" void hostSigint(int) { host_sigint_calls = host_sigint_calls + 1; }

// The host's own SIGINT handler, installed for a test.
class LinkSignals : public LinkTest {
protected:
    void SetUp() override {
        LinkTest::SetUp();
        struct sigaction action = {};
        action.sa_handler = hostSigint;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &saved_);
        host_sigint_calls = 0;
    }
    void TearDown() override {
        sigaction(SIGINT, &saved_, nullptr);
        LinkTest::TearDown();
    }
    static void (*currentHandler())(int) {
        struct sigaction action;
        sigaction(SIGINT, nullptr, &action);
        return action.sa_handler;
    }
    struct sigaction saved_;
};

TEST_F(LinkSignals, AnInterruptedSolveStoresMinusFive) {
    const standin::HostProblem problem(coneProgram(knownProblems()[5]));
    const std::int32_t id = createInstance();
    Settings settings = linkTestSettings();
    settings.verbose = 1;
    // Ctrl+C as the progress header is printed: the iteration listens by then.
    ConsoleTap console(" Iter ");
    EXPECT_EQ(solve(id, problem, settings), KORVEX_SIGINT);
    EXPECT_NE(console.finish().find("Failure:Interrupted\n"), std::string::npos);
    EXPECT_TRUE(console.fired());
    EXPECT_EQ(host_sigint_calls, 0);              // the library's handler took the key
    EXPECT_EQ(currentHandler(), hostSigint);      // and the host's is back
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SIGINT);
    EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "Interrupted");
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), -1);
    const std::vector<double> x = vector(&KorvexLink::ret_x, id);
    EXPECT_TRUE(allNaN(x.data(), x.size()));
    EXPECT_EQ(vector(&KorvexLink::ret_y, id).size(), 6u);
    EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);  // the flag starts cleared
}

TEST_F(LinkSignals, NoSignalHandlerIsLeftBehind) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    Settings failing = linkTestSettings(), limited = linkTestSettings();
    failing.max_iters = 0;
    limited.max_iters = 3;
    ConsoleTap console;
    EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(currentHandler(), hostSigint);
    EXPECT_EQ(solve(id, problem, failing), KORVEX_FAILED);
    EXPECT_EQ(currentHandler(), hostSigint);
    const std::int32_t at_the_limit = solve(id, problem, limited);
    EXPECT_EQ(at_the_limit, field<std::int32_t>(&KorvexLink::ret_statusVal, id));
    EXPECT_EQ(currentHandler(), hostSigint);
    EXPECT_EQ(solve(id + 1, problem, linkTestSettings()), KORVEX_FAILED);  // no instance
    EXPECT_EQ(currentHandler(), hostSigint);
}

}  // namespace
