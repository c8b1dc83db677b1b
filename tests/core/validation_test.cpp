// The validation from scenarios kept as data: every refusal and warning in the order of
// the checks, the settings dump, and solves of data with NaN or infinite values.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>

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
    return problems.at(std::find_if(problems.begin(), problems.end(), [&](const Problem& p) { return p.name == name; }) -
                       problems.begin());
}

// PLACE=VALUE of a scenario: an option by its name, an integer of the records, an entry
// of one of their arrays (b[2]), or such an array cleared (b=null).
void change(SolveRun& run, const std::string& place, const std::string& value) {
    const std::map<std::string, double**> reals = {
        {"b", &run.data.b}, {"c", &run.data.c}, {"A.x", &run.A.x}, {"power", &run.cone.power_exponents}};
    const std::map<std::string, int**> indices = {{"A.i", &run.A.i}, {"A.p", &run.A.p}};
    std::map<std::string, double*> numbers;
    std::map<std::string, int*> integers = {{"m", &run.data.m}, {"n", &run.data.n}, {"A.m", &run.A.m},
                                            {"A.n", &run.A.n}, {"cone.linear_vars", &run.cone.linear_vars}};
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (option.int_field != nullptr) integers[option.name] = &(run.settings.*option.int_field);
        if (option.double_field != nullptr) numbers[option.name] = &(run.settings.*option.double_field);
    }
    if (value == "null") {
        if (reals.count(place) != 0) *reals.at(place) = nullptr;
        if (indices.count(place) != 0) *indices.at(place) = nullptr;
        return;
    }
    if (const std::size_t bracket = place.find('['); bracket != std::string::npos) {
        const std::string array = place.substr(0, bracket);
        const int k = std::stoi(place.substr(bracket + 1));
        if (reals.count(array) != 0) numbers[place] = *reals.at(array) + k;
        if (indices.count(array) != 0) integers[place] = *indices.at(array) + k;
    }
    if (numbers.count(place) != 0) {
        *numbers.at(place) = std::stod(value);
    } else {
        *integers.at(place) = std::stoi(value);
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
        const bool solve = name == "solve";  // the whole solve, not the validation alone
        if (solve) words >> name;
        SolveRun run(problemNamed(name));
        while (words >> word) change(run, word.substr(0, word.find('=')), word.substr(word.find('=') + 1));
        CapturedOutput out;
        const int result = solve ? run.solve() : validateProblem(&run.data, &run.cone);
        transcript += line + "\n" + (solve ? run.report : out.finish()) + "=> " + std::to_string(result);
        if (solve) transcript += std::string(" (") + run.info.status + "), iter " + std::to_string(run.info.iter);
        transcript += "\n\n";
    }
    expectGolden("validation_transcript.txt", transcript);

    // Without Data, Cone or Info there is nothing to validate.
    SolveRun run(problemNamed("lp"));
    CapturedOutput out;
    EXPECT_EQ(solveConeProgram(nullptr, &run.cone, &run.solution, &run.info), KORVEX_FAILED);
    EXPECT_EQ(out.finish(), "ERROR: Missing Data, Cone or Info input\nFailure:could not initialize work\n");
    // Without a Solution there is nowhere to write x, y and s.
    CapturedOutput refused;
    EXPECT_EQ(solveConeProgram(&run.data, &run.cone, nullptr, &run.info), KORVEX_FAILED);
    EXPECT_EQ(refused.finish(), "ERROR: Missing Solution input\nFailure:could not initialize work\n");
    EXPECT_EQ(run.info.iter, -1);
}

}  // namespace
