// The built library as a host sees it: exactly the 22 exports in its dynamic symbol table,
// every cone family solved bit for bit as the core solves it, interrupts and the status
// text of the instance, and a thousand solves and deletes that leave nothing behind. The
// store's other rules: transcript_test.cpp.
#include <malloc.h>

#include <algorithm>
#include <csignal>
#include <cmath>
#include <cstdlib>
#include <set>
#include <sstream>

#include "link/link_fixture.h"

using namespace korvex;

namespace {

TEST(LinkSymbols, ExactlyTheHostExportsAreVisible) {
    // The defined symbols, as binutils' readelf lists them, that another module can bind
    // to (global or weak, default or protected visibility); every one must be a function.
    std::FILE* pipe = popen((std::string("readelf --dyn-syms -W ") + KORVEX_LINK_PATH).c_str(), "r");
    std::vector<std::string> visible, expected = korvexLinkExportNames();
    char line[1024];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string number, value, size, type, binding, visibility, section, name;
        if (!(fields >> number >> value >> size >> type >> binding >> visibility >> section >> name) || number.back() != ':' ||
            section == "UND" || (binding != "GLOBAL" && binding != "WEAK") || (visibility != "DEFAULT" && visibility != "PROTECTED")) {
            continue;
        }
        visible.push_back(name);
        EXPECT_EQ(type, "FUNC") << name;
    }
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << "readelf failed";
    std::sort(visible.begin(), visible.end());
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(std::set<std::string>(expected.begin(), expected.end()).size(), 22u);
    EXPECT_EQ(visible, expected);  // no symbol listed twice, none missing, none extra
}

using LinkSolve = LinkTest;

TEST_F(LinkSolve, EveryConeFamilyMatchesTheDirectSolveBitForBit) {
    // The core's solve in this process is the reference: the link hands every value on
    // unchanged, each through its own accessor; the LP's empty tensors give no blocks.
    const std::pair<KorvexLinkFunction KorvexLink::*, double Info::*> reals[] = {
        {&KorvexLink::ret_pobj, &Info::pobj},           {&KorvexLink::ret_dobj, &Info::dobj},
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
        for (const auto& [accessor, member] : reals) {
            const double value = field<double>(accessor, id), want = direct.info.*member;
            EXPECT_TRUE((std::isnan(value) && std::isnan(want)) || value == want) << value << " vs " << want;
        }
        EXPECT_NEAR(field<double>(&KorvexLink::ret_pobj, id), problem.objective, 1e-4 * (1 + std::fabs(problem.objective)));
        // Times are measured anew: only their kind is known, milliseconds of this solve.
        const double setup = field<double>(&KorvexLink::ret_setupTime, id), time = field<double>(&KorvexLink::ret_solveTime, id);
        EXPECT_TRUE(setup > 0.0 && time > 0.0 && setup + time < 60000.0) << setup << " " << time;
        const int m = problem.m(), n = problem.n();
        EXPECT_EQ(vector(&KorvexLink::ret_x, id), std::vector<double>(direct.solution.x, direct.solution.x + n));
        EXPECT_EQ(vector(&KorvexLink::ret_y, id), std::vector<double>(direct.solution.y, direct.solution.y + m));
        EXPECT_EQ(vector(&KorvexLink::ret_s, id), std::vector<double>(direct.solution.s, direct.solution.s + m));
        EXPECT_EQ(deleteInstance(id), 0);
    }
}

volatile std::sig_atomic_t host_sigint_calls = 0;
extern "C" void hostSigint(int) { host_sigint_calls = host_sigint_calls + 1; }

TEST_F(LinkSolve, AnInterruptIsStoredAsMinusFiveTheHostsHandlerIsAlwaysBackAndStatusIsTheInstances) {
    const auto saved = std::signal(SIGINT, hostSigint);
    // Whether the host's handler is in place; it is put back if not, for the next check.
    const auto hostHandlerIsBack = [] { return std::signal(SIGINT, hostSigint) == hostSigint; };
    const standin::HostProblem problem(coneProgram(knownProblems()[5]));
    const std::int32_t id = createInstance();
    Settings settings = linkTestSettings(), failing = settings, limited = settings;
    settings.verbose = 1;
    ConsoleTap console(" Iter ");  // Ctrl+C as the progress header is printed: the iteration listens by then
    EXPECT_EQ(solve(id, problem, settings), KORVEX_SIGINT);
    EXPECT_NE(console.finish().find("Failure:Interrupted\n"), std::string::npos);
    EXPECT_TRUE(console.fired() && host_sigint_calls == 0);  // the library's handler took the key
    EXPECT_TRUE(hostHandlerIsBack());                        // and the host's is back
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), KORVEX_SIGINT);
    const char* text = field<char*>(&KorvexLink::ret_status, id);  // the instance's own, kept up to date
    EXPECT_STREQ(text, "Interrupted");
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), -1);
    const std::vector<double> x = vector(&KorvexLink::ret_x, id);
    EXPECT_TRUE(!x.empty() && allNaN(x.data(), x.size()));
    EXPECT_EQ(vector(&KorvexLink::ret_y, id).size(), 6u);
    // Solved (the flag starts cleared), refused, stopped at the limit, without an instance.
    failing.max_iters = 0;
    limited.max_iters = 3;
    ConsoleTap quiet;
    EXPECT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_STREQ(text, "Solved");
    for (const Settings& options : {failing, limited}) {
        const std::int32_t status = solve(id, problem, options);
        EXPECT_EQ(status, field<std::int32_t>(&KorvexLink::ret_statusVal, id));
        EXPECT_EQ(field<char*>(&KorvexLink::ret_status, id), text);
        EXPECT_TRUE(hostHandlerIsBack());
    }
    EXPECT_EQ(solve(id + 1, problem, failing), KORVEX_FAILED);
    EXPECT_TRUE(hostHandlerIsBack());
    std::signal(SIGINT, saved);
}

TEST_F(LinkSolve, AThousandSolvesWithAHistoryAndDeletesLeaveNothingBehind) {
    // Marlet solves with record_progress leave ten history arrays in Info, which no accessor
    // reaches: over 3 MB a solve if they stayed. After a hundred cycles (buffers of the C
    // streams, the store's buckets), a block lost per cycle would be over 14 kB. The heap
    // in use counts blocks mapped on their own too; under AddressSanitizer, whose quarantine
    // keeps freed blocks, it is 0, and LeakSanitizer checks at exit.
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    Settings settings = linkTestSettings();
    ASSERT_EQ(settings.do_super_korvex, 1);
    settings.record_progress = 1;
    const long problem_tensors = standin::liveTensorCount();
    const auto heapInUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    std::size_t before = 0;
    const int rounds = std::getenv("KORVEX_LINK_SOLVES") ? std::atoi(std::getenv("KORVEX_LINK_SOLVES")) : 1000;  // valgrind: fewer
    for (int k = 0; k < rounds; ++k) {
        if (k == rounds / 10) before = heapInUse();
        const std::int32_t id = createInstance();
        ASSERT_EQ(solve(id, problem, settings), KORVEX_SOLVED);
        ASSERT_EQ(vector(&KorvexLink::ret_x, id).size(), 2u);
        ASSERT_EQ(deleteInstance(id), 0);
    }
    EXPECT_LE(heapInUse(), before + 1024) << "the heap in use grew";
    EXPECT_EQ(standin::liveTensorCount(), problem_tensors);
}

}  // namespace
