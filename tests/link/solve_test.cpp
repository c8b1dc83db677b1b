// KorvexLinkSolve through the real library: every cone family against the same solve
// made directly, the options by position, refusals that leave the store alone, failures
// that are stored, repeated solves, a missing instance, warm start, failing host calls,
// and an interrupt.
#include <csignal>
#include <cmath>
#include <cstring>

#include "link/link_fixture.h"

namespace {

// The scalar accessors and the field of Info each must report.
struct ScalarField {
    KorvexLinkFunction KorvexLink::*accessor;
    double Info::*field;
};

const ScalarField kRealFields[] = {
    {&KorvexLink::ret_pobj, &Info::pobj},           {&KorvexLink::ret_dobj, &Info::dobj},
    {&KorvexLink::ret_resPri, &Info::resPri},       {&KorvexLink::ret_resDual, &Info::resDual},
    {&KorvexLink::ret_resInfeas, &Info::resInfeas}, {&KorvexLink::ret_resUnbdd, &Info::resUnbdd},
    {&KorvexLink::ret_relGap, &Info::relGap},
};

// Two doubles that are the same value, NaN included.
bool sameValue(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

using LinkSolve = LinkTest;

bool allNaN(const std::vector<double>& values) {
    for (double value : values) {
        if (!std::isnan(value)) return false;
    }
    return true;
}

TEST_F(LinkSolve, EveryConeFamilyMatchesTheDirectSolveBitForBit) {
    // The same problem solved in this process straight through the core is the
    // reference, bit for bit: the link must hand every value on unchanged, each through
    // its own accessor.
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
        for (const ScalarField& scalar : kRealFields) {
            const double value = field<double>(scalar.accessor, id);
            EXPECT_TRUE(sameValue(value, direct.info.*scalar.field)) << value << " vs " << direct.info.*scalar.field;
        }
        EXPECT_NEAR(field<double>(&KorvexLink::ret_pobj, id), problem.objective, 1e-4 * (1 + std::fabs(problem.objective)));
        // Times are measured anew, so only their kind is known: milliseconds of this solve.
        const double setup = field<double>(&KorvexLink::ret_setupTime, id);
        const double solve_time = field<double>(&KorvexLink::ret_solveTime, id);
        EXPECT_GT(setup, 0.0);
        EXPECT_GT(solve_time, 0.0);
        EXPECT_LT(setup + solve_time, 60000.0);

        const int m = problem.m(), n = problem.n();
        EXPECT_EQ(vector(&KorvexLink::ret_x, id), std::vector<double>(direct.solution.x, direct.solution.x + n));
        EXPECT_EQ(vector(&KorvexLink::ret_y, id), std::vector<double>(direct.solution.y, direct.solution.y + m));
        EXPECT_EQ(vector(&KorvexLink::ret_s, id), std::vector<double>(direct.solution.s, direct.solution.s + m));
        EXPECT_EQ(deleteInstance(id), 0);
    }
}

TEST_F(LinkSolve, EmptySizeTensorsGiveNoBlocks) {
    // A linear program: the tensors at positions 6, 7 and 10 have length 0, and the
    // stand-in host gives no data for them, so reading them would show.
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    ASSERT_EQ(standin::realValues(problem.power_exponents).size(), 0u);
    const std::int32_t id = createInstance();
    Settings settings = linkTestSettings();
    settings.verbose = 1;
    ConsoleTap console;
    ASSERT_EQ(solve(id, problem, settings), KORVEX_SOLVED);
    EXPECT_NE(console.finish().find("\nCones:\tlinear vars: 4\nSetup time"), std::string::npos) << console.finish();
}

TEST_F(LinkSolve, DirectionNamesAreComparedInFull) {
    const struct {
        const char* name;
        int code;
    } cases[] = {{"restarted_broyden", 100}, {"restarted_broyden_v2", 101}, {"fixed_point_residual", 200},
                 {"full_broyden", 300},      {"Full_Broyden", 100},         {"full_broyden ", 100},
                 {"full", 100},              {"", 100},                     {"anderson", 100}};
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    Settings settings = linkTestSettings();
    settings.do_super_korvex = 0;  // reads no direction, so that every name solves
    settings.verbose = 2;          // the settings dump shows the code
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.name);
        ConsoleTap console;
        ASSERT_EQ(solve(id, problem, settings, entry.name), KORVEX_SOLVED);
        const std::string line = "\ndir          : " + std::to_string(entry.code) + "\n";
        EXPECT_NE(console.finish().find(line), std::string::npos);
    }
}

TEST_F(LinkSolve, EachOptionIsReadFromItsPosition) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    standin::SolveArguments arguments(id, problem, linkTestSettings(), "restarted_broyden");
    // Distinct values at their positions, as listed by the host's documentation of the
    // call; note k1 and k2 before c_bl.
    arguments.setInteger(11, 0);        // normalize
    arguments.setReal(12, 2.5);         // scale
    arguments.setReal(13, 0.03125);     // rho_x
    arguments.setInteger(14, 1234);     // max_iters
    arguments.setReal(16, 0.0625);      // eps
    arguments.setReal(17, 1.25);        // alpha
    arguments.setReal(18, 3.5);         // cg_rate
    arguments.setInteger(19, 2);        // verbose
    arguments.setInteger(21, 0);        // do_super_korvex
    arguments.setInteger(22, 1);        // k0
    arguments.setInteger(23, 0);        // k1
    arguments.setInteger(24, 1);        // k2
    arguments.setReal(25, 0.875);       // c_bl
    arguments.setReal(26, 0.625);       // c1
    arguments.setReal(27, 0.75);        // sse
    arguments.setInteger(28, 7);        // ls
    arguments.setReal(29, 0.375);       // beta
    arguments.setReal(30, 0.125);       // sigma
    arguments.setText(31, "full_broyden");
    arguments.setReal(32, 0.3125);      // thetabar
    arguments.setInteger(33, 9);        // memory
    ConsoleTap console;
    ASSERT_EQ(solve(arguments), KORVEX_SOLVED);
    const std::string dump =
        "Settings:\nalpha        : 1.25\nbeta         : 0.375\nc1           : 0.625\nc_bl         : 0.875\n"
        "cg_rate      : 3.5\ndir          : 300\ndo_super_korvex : 0\neps          : 0.0625\n"
        "(k0, k1, k2) : (1, 0, 1)\nls           : 7\nmax_iters    : 1234\nmemory       : 9\n"
        "normalize    : 0\nrho_x        : 0.03125\nscale        : 2.5\nsigma        : 0.125\n"
        "sse          : 0.75\nthetabar     : 0.3125\nwarm_start   : 0\n";
    const std::string text = console.finish();
    EXPECT_NE(text.find(dump), std::string::npos) << text;
    // Standard output whatever the host wanted: the whole report came through stdout.
    EXPECT_NE(text.find("Status: Solved"), std::string::npos);
}

TEST_F(LinkSolve, AFailedSolveIsStoredWithNaNVectors) {
    const Problem lp = knownProblems()[0];
    const standin::HostProblem problem(coneProgram(lp));
    const std::int32_t id = createInstance();
    Settings settings = linkTestSettings();
    settings.eps = -1.0;  // refused by the validation of the solve, not by the link
    ConsoleTap console;
    EXPECT_EQ(solve(id, problem, settings), KORVEX_FAILED);
    EXPECT_NE(console.finish().find("Failure:could not initialize work\n"), std::string::npos);
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_FAILED);
    EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "Failure");
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), -1);
    EXPECT_TRUE(std::isnan(field<double>(&KorvexLink::ret_pobj, id)));
    const std::vector<double> x = vector(&KorvexLink::ret_x, id);
    const std::vector<double> y = vector(&KorvexLink::ret_y, id);
    const std::vector<double> s = vector(&KorvexLink::ret_s, id);
    EXPECT_EQ(x.size(), 2u);
    EXPECT_EQ(y.size(), 4u);
    EXPECT_EQ(s.size(), 4u);
    EXPECT_TRUE(allNaN(x) && allNaN(y) && allNaN(s));
}

TEST_F(LinkSolve, ARowIndexBelowOneReachesTheValidation) {
    // Index 0 of a one-based host array is no row: the solve refuses it, and that
    // failure is a result like any other, stored with its NaN vectors.
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    HostSparse bad = standin::newSparse(4, {0, 2, 4}, {0, 2, 1, 4}, {1, 3, 2, 1});
    const std::int32_t id = createInstance();
    standin::SolveArguments arguments(id, problem, linkTestSettings(), "restarted_broyden");
    arguments.setSparse(3, bad);
    ConsoleTap console;
    EXPECT_EQ(solve(arguments), KORVEX_FAILED);
    standin::freeSparse(bad);
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_FAILED);
    EXPECT_TRUE(allNaN(vector(&KorvexLink::ret_x, id)));
}

TEST_F(LinkSolve, MalformedSparseArraysAreRefusedAndTheEarlierResultStays) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));  // n = 2, 6 stored values
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    const std::vector<double> x = vector(&KorvexLink::ret_x, id);
    const double pobj = field<double>(&KorvexLink::ret_pobj, id);
    const long tensors = standin::liveTensorCount();

    const struct {
        const char* what;
        std::vector<std::int32_t> starts, indices;
        std::vector<double> values;
    } malformed[] = {
        {"starts one short", {0, 3}, {1, 2, 3, 1, 2, 4}, {1, 3, -1, 2, 1, -1}},
        {"starts one long", {0, 3, 6, 6}, {1, 2, 3, 1, 2, 4}, {1, 3, -1, 2, 1, -1}},
        {"no stored value", {0, 0, 0}, {}, {}},
        {"indices one short", {0, 3, 6}, {1, 2, 3, 1, 2}, {1, 3, -1, 2, 1, -1}},
        {"indices one long", {0, 3, 6}, {1, 2, 3, 1, 2, 4, 4}, {1, 3, -1, 2, 1, -1}},
        {"values one short", {0, 3, 6}, {1, 2, 3, 1, 2, 4}, {1, 3, -1, 2, 1}},
        {"values one long", {0, 3, 6}, {1, 2, 3, 1, 2, 4}, {1, 3, -1, 2, 1, -1, 5}},
    };
    for (const auto& entry : malformed) {
        SCOPED_TRACE(entry.what);
        HostSparse A = standin::newSparse(4, entry.starts, entry.indices, entry.values);
        standin::SolveArguments arguments(id, problem, linkTestSettings(), "restarted_broyden");
        arguments.setSparse(3, A);
        ConsoleTap console;  // a refusal prints nothing
        EXPECT_EQ(solve(arguments), KORVEX_FAILED);
        EXPECT_EQ(console.finish(), "");
        standin::freeSparse(A);
        EXPECT_EQ(standin::liveTensorCount(), tensors);  // every clone freed
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SOLVED);
        EXPECT_EQ(field<double>(&KorvexLink::ret_pobj, id), pobj);
        EXPECT_EQ(vector(&KorvexLink::ret_x, id), x);
    }
}

TEST_F(LinkSolve, ASecondSolveUnderOneIdReplacesTheFirst) {
    const Problem lp = knownProblems()[0], disc = knownProblems()[2];
    const standin::HostProblem first(coneProgram(lp)), second(coneProgram(disc));
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
    // The link has no start point to offer: the solve says so and makes the cold start.
    // The standard iteration then runs exactly as without warm_start; the Marlet
    // iteration still reads the value as the first iteration of its step logic.
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
        if (iteration == 0) {
            EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, warm), field<std::int32_t>(&KorvexLink::ret_iter, cold));
            EXPECT_EQ(vector(&KorvexLink::ret_x, warm), vector(&KorvexLink::ret_x, cold));
        }
    }
}

TEST_F(LinkSolve, FailingHostClonesRefuseTheSolve) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    const long tensors = standin::liveTensorCount();
    // The five tensor clones in turn, then the sparse clone.
    for (int k = 1; k <= 6; ++k) {
        SCOPED_TRACE(k);
        if (k <= 5) {
            standin::failCallAt(standin::HostCall::TensorClone, k);
        } else {
            standin::failCallAt(standin::HostCall::SparseClone, 1);
        }
        EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_FAILED);
        standin::clearFailures();
        EXPECT_EQ(standin::liveTensorCount(), tensors);
        EXPECT_EQ(standin::liveSparseCount(), 1);  // the problem's own
        EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SOLVED);
    }
}

TEST_F(LinkSolve, AVectorTheHostCannotHoldIsLeftOut) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    standin::failCallAt(standin::HostCall::TensorNew, 2);  // x, then y: y fails
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

// The SIGINT action in force, to compare before and after a call.
struct sigaction currentSigint() {
    struct sigaction action;
    sigaction(SIGINT, nullptr, &action);
    return action;
}

volatile std::sig_atomic_t host_sigint_calls = 0;
extern "C" void hostSigint(int) { host_sigint_calls = host_sigint_calls + 1; }

// The host's own SIGINT handler, installed for a scope.
class HostSigintHandler {
public:
    HostSigintHandler() {
        struct sigaction action = {};
        action.sa_handler = hostSigint;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &saved_);
        host_sigint_calls = 0;
    }
    ~HostSigintHandler() { sigaction(SIGINT, &saved_, nullptr); }

private:
    struct sigaction saved_;
};

TEST_F(LinkSolve, AnInterruptedSolveStoresMinusFive) {
    const standin::HostProblem problem(coneProgram(knownProblems()[5]));
    const std::int32_t id = createInstance();
    HostSigintHandler host_handler;
    Settings settings = linkTestSettings();
    settings.verbose = 1;
    // Ctrl+C as the progress table's header is printed: the iteration listens by then,
    // and its first check sees the key.
    ConsoleTap console(" Iter ");
    EXPECT_EQ(solve(id, problem, settings), KORVEX_SIGINT);
    const std::string text = console.finish();
    EXPECT_TRUE(console.fired());
    EXPECT_NE(text.find("Failure:Interrupted\n"), std::string::npos) << text;
    EXPECT_EQ(host_sigint_calls, 0);  // the library's handler took the key
    EXPECT_EQ(currentSigint().sa_handler, hostSigint);  // and the host's is back

    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SIGINT);
    EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "Interrupted");
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), -1);
    EXPECT_TRUE(allNaN(vector(&KorvexLink::ret_x, id)));
    EXPECT_EQ(vector(&KorvexLink::ret_y, id).size(), 6u);

    // The next solve starts with the flag cleared.
    EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
}

TEST_F(LinkSolve, NoSignalHandlerIsLeftBehind) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    HostSigintHandler host_handler;
    Settings failing = linkTestSettings();
    failing.max_iters = 0;
    Settings limited = linkTestSettings();
    limited.max_iters = 3;
    ConsoleTap console;
    EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(currentSigint().sa_handler, hostSigint);
    EXPECT_EQ(solve(id, problem, failing), KORVEX_FAILED);
    EXPECT_EQ(currentSigint().sa_handler, hostSigint);
    const std::int32_t at_the_limit = solve(id, problem, limited);
    EXPECT_EQ(at_the_limit, field<std::int32_t>(&KorvexLink::ret_statusVal, id));
    EXPECT_EQ(currentSigint().sa_handler, hostSigint);
    EXPECT_EQ(solve(id + 1, problem, linkTestSettings()), KORVEX_FAILED);  // no instance
    EXPECT_EQ(currentSigint().sa_handler, hostSigint);
}

}  // namespace
