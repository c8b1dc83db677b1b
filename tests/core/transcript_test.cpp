// Console reports kept whole as golden transcripts (tests/golden/core_*), times masked:
// banner, memory line, progress tables, closing reports of every kind of end, settings
// dump, interrupts, every allocation of the set-up failing in turn.
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <tuple>

#include "core/report.h"
#include "core/solver.h"
#include "support/capture.h"
#include "support/golden.h"
#include "support/problems.h"

namespace {

// The time cell of the progress lines (width 9 and a blank), the setup and solve times,
// and the averages of the closing report (only these outside a solve); the signs of NaN.
std::string maskTimes(const std::string& report, bool solve) {
    const std::regex cell("^( *\\d+\\|.*)[ 0-9.e+-]{9} $", std::regex::multiline);
    const std::regex times(solve ? "(Setup time: |Solve time: |avg \\w+ time: )[0-9.e:+-]+" : "(avg \\w+ time: )[0-9.e+-]+");
    const std::string text = std::regex_replace(solve ? std::regex_replace(report, cell, "$1   <time> ") : report, times, "$1<time>");
    return std::regex_replace(text, std::regex("-nan"), " nan");  // the sign of a NaN is the compiler's choice
}

void printOutcome(const SolveRun& run) {
    const Info& i = run.info;
    std::printf("=> %d \"%s\" iter %d pobj %.6e dobj %.6e memory_bytes %d progress_count %d capacity %d history %s\n",
                i.statusVal, i.status, i.iter, i.pobj, i.dobj, i.memory_bytes, i.progress_count,
                run.settings.progress_capacity, i.progress_rel_gap != nullptr ? "kept" : "none");
    const Solution& v = run.solution;
    for (const auto& [name, vector, count] : {std::tuple{'x', v.x, run.data.n}, {'y', v.y, run.data.m}, {'s', v.s, run.data.m}}) {
        std::printf("   %c", name);
        for (int k = 0; vector != nullptr && k < count; ++k) std::printf(" %.6g", vector[k]);
        std::printf("\n");
    }
}

// Every allocation of a quiet solve failing in turn, until one solve makes no failure.
void everyAllocationFailing(SolveRun& base) {
    for (long k = 1;; ++k) {
        SolveRun run(base.problem);
        run.settings = base.settings;
        run.settings.verbose = 0;
        std::printf("-- allocation %ld fails\n", k);
        failAllocationAt(k);
        solveConeProgram(&run.data, &run.cone, &run.solution, &run.info);
        const bool fired = allocationFailureFired();
        failAllocationAt(0);
        printOutcome(run);
        if (!fired) return;
    }
}

// The closing report of chosen vectors for every kind of end (the inaccurate ones too),
// with solve times that split into hours, minutes, seconds and milliseconds.
void closingReports(SolveRun& run) {
    run.settings.verbose = 0;
    Work* work = run.work = initWork(&run.data, &run.cone);
    std::vector<double> x = {1.0, -2.0}, y = {0.5, -1.0, 0.0, 2.0}, s = {1.0, 0.0, -0.5, 3.0};
    const Solution solution{x.data(), y.data(), s.data()};
    const std::pair<int, double> ends[] = {{KORVEX_SOLVED, 3725400.0}, {KORVEX_SOLVED_INACCURATE, 50.0},
                                           {KORVEX_INFEASIBLE_INACCURATE, 5.0}, {KORVEX_UNBOUNDED_INACCURATE, 59999.0},
                                           {KORVEX_INDETERMINATE, 3600000.0 * 25 + 61000.0}};
    for (const auto& [status, ms] : ends) {
        Info info{};
        info.statusVal = status, info.iter = status == KORVEX_SOLVED_INACCURATE ? run.settings.max_iters : 3, info.solveTime = ms;
        info.pobj = info.resPri = 0.125, info.dobj = info.resDual = -0.25, info.relGap = info.resInfeas = info.resUnbdd = 1e-7;
        setStatusText(&info, statusText(status));
        printFooter(&run.data, &run.cone, &solution, work, &info);
    }
}

struct Scenario {
    const char* name;
    Problem problem;
    std::function<void(Settings&)> adjust;
    const char* trigger = "";              // Ctrl+C as soon as this text is printed
    void (*action)(SolveRun&) = nullptr;  // instead of one solve
};

TEST(Transcript, EveryScenarioAsKeptInTheGoldenFiles) {
    const Problem lp = knownProblems()[0], cert = certificateProblems()[0], ray = certificateProblems()[3];
    // The smallest programs whose estimates are 1000 bytes (m 2, n 2, 4 entries) and 1004
    // bytes (m 2, n 1, 2 entries) with the settings below: the last figure printed in
    // bytes and the first in kB.
    const Problem square{.name = "square", .rows = {{-1, -1}, {-1, 1}}, .b = {-1, 0}, .c = {1, 1}, .linear_vars = 2};
    const Problem interval{.name = "interval", .rows = {{-1}, {1}}, .b = {-1, 3}, .c = {1}, .linear_vars = 2};
    const auto marlet = [](Settings& s) { setDefaultSettings(&s); };
    const Scenario scenarios[] = {
        {"standard_lp", lp, [](Settings&) {}},
        {"standard_limit", lp, [](Settings& s) { s.max_iters = 12; }},
        {"standard_infeasible", cert, [](Settings&) {}},
        {"marlet_defaults_verbose_2", lp, [&](Settings& s) { marlet(s), s.verbose = 2; }},  // 2576 bytes
        {"marlet_memory_1000_bytes", square, [&](Settings& s) { marlet(s), s.normalize = s.ls = 0, s.memory = 2; }},
        {"marlet_memory_1004_bytes", interval, [&](Settings& s) { marlet(s), s.normalize = 0, s.memory = 4; }},
        {"marlet_unbounded", ray, marlet},
        {"marlet_verbose_negative", lp, [&](Settings& s) { marlet(s), s.verbose = -1; }},
        {"marlet_warm_start_without_point", lp, [&](Settings& s) { marlet(s), s.warm_start = 5; }},
        {"marlet_reserved_direction", lp, [&](Settings& s) { marlet(s), s.dir = KORVEX_DIR_RESTARTED_BROYDEN_V2; }},
        {"interrupt_in_iteration", lp, [](Settings&) {}, " Iter "},
        {"interrupt_in_factorisation", lp, [](Settings&) {}, "Variables n ="},
        {"interrupt_before_iteration", lp, [](Settings&) {}, "Setup time:"},  // listening again clears it
        {"setup_failures_standard", knownProblems()[3], [](Settings&) {}, "", everyAllocationFailing},
        {"setup_failures_marlet", knownProblems()[3], marlet, "", everyAllocationFailing},
        {"closing_reports", lp, [](Settings&) {}, "", closingReports},
    };
    for (const Scenario& scenario : scenarios) {
        SCOPED_TRACE(scenario.name);
        SolveRun run(scenario.problem);
        run.settings.verbose = 1;
        scenario.adjust(run.settings);
        ConsoleTap tap(scenario.trigger);
        if (scenario.action != nullptr) {
            scenario.action(run);
        } else {
            solveConeProgram(&run.data, &run.cone, &run.solution, &run.info);
            printOutcome(run);
        }
        EXPECT_EQ(tap.fired(), *scenario.trigger != '\0');
        expectGolden(std::string("core_") + scenario.name, maskTimes(tap.finish(), scenario.action == nullptr));
    }
}

}  // namespace
