// The validation from scenarios kept as data: every refusal and warning, in the order of
// the checks, as one transcript; non-finite data reaching a solve; the settings dump.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>
#include <string>

#include "core/report.h"
#include "core/solver.h"
#include "core/validation.h"
#include "support/capture.h"
#include "support/golden.h"
#include "support/problems.h"

using namespace korvex;

namespace {

Problem problemNamed(const std::string& name) {
    std::vector<Problem> problems = knownProblems();
    problems.push_back({.name = "wide", .rows = {{1, 0, 1}}, .b = {1}, .c = {1, 0, 1}, .linear_vars = 1});
    problems.push_back({.name = "full", .rows = {{1}}, .b = {1}, .c = {1}, .linear_vars = 1});
    for (const Problem& p : problems) {
        if (p.name == name) return p;
    }
    ADD_FAILURE() << "no problem " << name;
    return problems[0];
}

// An option by its name, or one of the integers and arrays of the records.
void change(SolveRun& run, const std::string& place, const std::string& value) {
    const double number = value == "null" ? 0.0 : std::stod(value);
    for (int j = 0; j < kSettingDescriptorCount; ++j) {
        const SettingDescriptor& option = kSettingDescriptors[j];
        if (place != option.name) continue;
        if (option.int_field != nullptr) run.settings.*option.int_field = static_cast<int>(number);
        if (option.double_field != nullptr) run.settings.*option.double_field = number;
        return;
    }
    const std::map<std::string, int*> integers = {{"m", &run.data.m}, {"n", &run.data.n}, {"A.m", &run.A.m},
                                                  {"A.n", &run.A.n}, {"cone.linear_vars", &run.cone.linear_vars}};
    const std::map<std::string, double**> reals = {
        {"b", &run.data.b}, {"c", &run.data.c}, {"A.x", &run.A.x}, {"power", &run.cone.power_exponents}};
    const std::map<std::string, int**> indices = {{"A.i", &run.A.i}, {"A.p", &run.A.p}};
    const std::size_t bracket = place.find('[');
    const std::string array = place.substr(0, bracket);
    const int k = bracket == std::string::npos ? -1 : std::stoi(place.substr(bracket + 1));
    if (integers.count(place) != 0) {
        *integers.at(place) = static_cast<int>(number);
    } else if (reals.count(array) != 0) {
        double*& values = *reals.at(array);
        if (k < 0) values = nullptr; else values[k] = number;
    } else if (indices.count(array) != 0) {
        int*& values = *indices.at(array);
        if (k < 0) values = nullptr; else values[k] = static_cast<int>(number);
    } else {
        ADD_FAILURE() << "no place " << place;
    }
}

TEST(Validation, EveryScenarioGivesItsMessagesAndResult) {
    std::istringstream scenarios(readGolden("validation_scenarios.txt"));
    std::string transcript, line;
    while (std::getline(scenarios, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream words(line);
        std::string name, word;
        words >> name;
        SolveRun run(problemNamed(name));
        while (words >> word) change(run, word.substr(0, word.find('=')), word.substr(word.find('=') + 1));
        CapturedOutput out;
        const int result = validateProblem(&run.data, &run.cone);
        transcript += line + "\n" + out.finish() + "=> " + std::to_string(result) + "\n\n";
    }
    expectGolden("validation_transcript.txt", transcript);
}

TEST(Validation, RefusedSolveStillDumpsTheSettingsAndFillsNaN) {
    SolveRun run(problemNamed("lp"));
    run.settings.verbose = 2;
    run.settings.eps = -1;
    EXPECT_EQ(run.solve(), KORVEX_FAILED);
    expectGolden("validation_refused_solve.txt", run.report);
    EXPECT_EQ(run.info.iter, -1);
    EXPECT_STREQ(run.info.status, "Failure");
    EXPECT_TRUE(std::isnan(run.info.pobj) && std::isnan(run.info.solveTime));
    EXPECT_TRUE(allNaN(run.solution.x, 2) && allNaN(run.solution.y, 4) && allNaN(run.solution.s, 4));

    // Without Data, Cone or Info there is nothing to validate.
    CapturedOutput out;
    EXPECT_EQ(solveConeProgram(nullptr, &run.cone, &run.solution, &run.info), KORVEX_FAILED);
    EXPECT_EQ(out.finish(), "ERROR: Missing Data, Cone or Info input\nFailure:could not initialize work\n");
}

TEST(Validation, SettingsDumpShowsEachFieldUnderItsName) {
    Settings settings;
    setDefaultSettings(&settings);
    for (int k = 0; k < kSettingDescriptorCount; ++k) {  // a different value in every field
        const SettingDescriptor& option = kSettingDescriptors[k];
        if (option.int_field != nullptr) settings.*option.int_field = 100 + k;
        if (option.double_field != nullptr) settings.*option.double_field = 0.25 + k;
    }
    CapturedOutput out;
    printSettingsDump(&settings);
    expectGolden("settings_dump.txt", out.finish());
}

}  // namespace
