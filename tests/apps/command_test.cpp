// The korvex command as a user runs it: exit codes, the summary line, usage errors,
// FILE:LINE messages, gzipped files, and the files it writes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zlib.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "io/readers.h"
#include "io_checks.h"

using namespace korvex;

namespace {

struct CommandRun {
    int exit_code;
    std::string output;  // standard output and standard error together
};

CommandRun korvex(const std::string& arguments) {
    const std::string command = std::string(KORVEX_EXECUTABLE) + " " + arguments + " 2>&1";
    std::FILE* pipe = popen(command.c_str(), "r");
    CommandRun run{-1, ""};
    if (pipe == nullptr) return run;
    char chunk[4096];
    std::size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) run.output.append(chunk, got);
    const int status = pclose(pipe);
    run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

// The standard iteration, quiet: the Marlet iteration is the default, and these tests are
// about the command, not the iteration.
const std::string kQuiet = "--do_super_korvex 0 --verbose 0 ";

std::string example(const char* name) { return examplesDir() + "/" + name; }

// Each test writes its files into a folder of its own, removed at its end.
class Command : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(folder_); }
    void TearDown() override { std::filesystem::remove_all(folder_); }
    std::string scratch(const std::string& name) const { return folder_ + "/" + name; }

private:
    std::string folder_ = testing::TempDir() + "korvex_command_" + std::to_string(getpid()) + "_" +
                          testing::UnitTest::GetInstance()->current_test_info()->name();
};

std::string fileText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

// The number after "objective " in the summary line.
double summaryObjective(const std::string& output) {
    std::smatch match;
    static const std::regex kObjective("objective (\\S+) \\(");
    if (!std::regex_search(output, match, kObjective)) return std::nan("");
    return std::stod(match[1]);
}

TEST_F(Command, ReportOfTheLibraryThenOneSummaryLine) {
    CommandRun run = korvex(kQuiet + "--eps 1e-7 " + example("production.mps"));
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_TRUE(std::regex_match(run.output, std::regex("korvex: Solved, objective 36\\.0+[0-9]* \\(max\\), [0-9]+ "
                                                        "iterations, read [0-9.]+s, setup [0-9.]+s, solve [0-9.]+s\n")))
        << run.output;
    // The dashed spelling of a setting, and NAME=VALUE.
    run = korvex("--do-super-korvex 0 --eps=1e-7 " + example("portfolio.cbf"));
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_NE(run.output.find("Running Standard KORVEX..."), std::string::npos) << run.output;
    EXPECT_LT(run.output.find("Running Standard KORVEX..."), run.output.find("korvex: Solved"));
}

TEST_F(Command, ExitCodesFollowTheStatus) {
    EXPECT_EQ(korvex(kQuiet + example("infeasible.mps")).exit_code, 0);
    EXPECT_EQ(korvex(kQuiet + example("unbounded.cbf")).exit_code, 0);
    CommandRun limit = korvex(kQuiet + "--max_iters 3 " + example("portfolio.cbf"));  // Solved/Inaccurate is a verdict
    EXPECT_EQ(limit.exit_code, 0);
    EXPECT_NE(limit.output.find("Inaccurate"), std::string::npos) << limit.output;
    CommandRun refused = korvex(kQuiet + "--eps -1 " + example("portfolio.cbf"));  // the solver refuses: Failure
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_NE(refused.output.find("eps tolerance must be positive (eps=-1)"), std::string::npos) << refused.output;
    EXPECT_NE(refused.output.find("korvex: Failure"), std::string::npos) << refused.output;
}

TEST_F(Command, TimeLimitInterruptsTheSolve) {
    // A tolerance no iterate meets and no iteration limit to speak of.
    CommandRun run = korvex(kQuiet + "--eps 1e-300 --max_iters 2000000000 --time-limit 0.3 " + example("entropy.cbf"));
    EXPECT_EQ(run.exit_code, 130);
    EXPECT_NE(run.output.find("korvex: Interrupted"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("(time limit reached)"), std::string::npos) << run.output;
}

TEST_F(Command, UsageErrorsExitWithTwo) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "korvex: no problem file given\nTry 'korvex --help'.\n"},
        {"--max_iters 10", "korvex: no problem file given\nTry 'korvex --help'.\n"},
        {"--epsilon 1 a.cbf", "korvex: unknown option --epsilon\nTry 'korvex --help'.\n"},
        {"--eps", "korvex: --eps needs a value\nTry 'korvex --help'.\n"},
        {"--max-iters ten a.cbf", "korvex: --max_iters takes a whole number, not 'ten'\nTry 'korvex --help'.\n"},
        {"--dir sideways a.cbf",
         "korvex: --dir takes restarted_broyden, restarted_broyden_v2, fixed_point_residual, full_broyden or a code, not "
         "'sideways'\nTry 'korvex --help'.\n"},
        {"--time-limit -2 a.cbf", "korvex: --time-limit takes a positive number of seconds, not '-2'\nTry 'korvex --help'.\n"},
        {"--blas-threads 0 a.cbf", "korvex: --blas-threads takes a whole number from 1 to 1024, not '0'\nTry 'korvex --help'.\n"},
        {"--format lp a.cbf", "korvex: --format takes cbf, sdpa or mps, not 'lp'\nTry 'korvex --help'.\n"},
        {"a.cbf b.cbf", "korvex: one problem file only (a.cbf and b.cbf)\nTry 'korvex --help'.\n"},
        {"--solution /nonexistent/dir/x.json " + example("portfolio.cbf"),
         "korvex: cannot write /nonexistent/dir/x.json: No such file or directory\n"},
    };
    for (const auto& [arguments, message] : cases) {
        SCOPED_TRACE(arguments);
        CommandRun run = korvex(arguments);
        EXPECT_EQ(run.exit_code, 2);
        EXPECT_EQ(run.output, message);
    }
}

TEST_F(Command, HelpListsTheOptionsAndTheSettingsWithDefaults) {
    CommandRun run = korvex("--help");
    EXPECT_EQ(run.exit_code, 0);
    // The settings' own lines come from the table, checked in full by the options test.
    for (const char* part : {"usage: korvex [options] FILE", "--time-limit SECONDS", "--blas-threads N", "--write-cbf PATH",
                             "--solution PATH", "--history PATH", "--plot PATH", "--max_iters INT", "(default 2500)"}) {
        EXPECT_NE(run.output.find(part), std::string::npos) << part;
    }
    CommandRun version = korvex("--version");
    EXPECT_EQ(version.exit_code, 0);
    EXPECT_EQ(version.output, "korvex 1.2.6-Vrena-Marlet\n");
}

TEST_F(Command, FilesThatCannotBeReadExitWithThreeAndSayWhereAndWhy) {
    EXPECT_EQ(korvex("/nonexistent/x.cbf").output, "/nonexistent/x.cbf: cannot open: No such file or directory\n");
    EXPECT_EQ(korvex("/nonexistent/x.cbf").exit_code, 3);
    const std::string bad = scratch("bad.cbf");
    writeFile(bad, "VER\n1\nOBJSENSE\nMIN\nVAR\n1 1\nF 1\nOBJACOORD\n1\n0 nan\n");
    CommandRun run = korvex(kQuiet + bad);
    EXPECT_EQ(run.exit_code, 3);
    EXPECT_EQ(run.output, bad + ":10: coefficient is not a finite number: 'nan'\n");
    CommandRun unknown = korvex(kQuiet + scratch("problem.txt"));
    EXPECT_EQ(unknown.exit_code, 3);
    EXPECT_NE(unknown.output.find("unknown file type"), std::string::npos);
    // --format reads a file whatever its name says.
    const std::string renamed = scratch("portfolio.txt");
    writeFile(renamed, fileText(example("portfolio.cbf")));
    EXPECT_EQ(korvex(kQuiet + "--format cbf " + renamed).exit_code, 0);
}

TEST_F(Command, GzippedFilesAreReadAndDamagedOnesRefused) {
    const std::string text = fileText(example("maxcut.dat-s"));
    const std::string packed = scratch("maxcut.dat-s.gz");
    gzFile out = gzopen(packed.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    gzwrite(out, text.data(), static_cast<unsigned>(text.size()));
    gzclose(out);
    CommandRun run = korvex(kQuiet + "--eps 1e-7 " + packed);
    EXPECT_EQ(run.exit_code, 0) << run.output;
    EXPECT_NEAR(summaryObjective(run.output), (25 + 5 * std::sqrt(5.0)) / 8, 1e-5);

    // The same bytes cut short.
    const std::string whole = fileText(packed);
    const std::string cut = scratch("cut.dat-s.gz");
    writeFile(cut, whole.substr(0, whole.size() / 2));
    CommandRun truncated = korvex(kQuiet + cut);
    EXPECT_EQ(truncated.exit_code, 3);
    EXPECT_EQ(truncated.output, cut + ": compressed data end early (truncated file)\n");
}

TEST_F(Command, WritesSolutionJsonAndCbfThatSolvesToTheSameObjective) {
    const std::string json = scratch("entropy.json"), cbf = scratch("entropy_again.cbf");
    CommandRun run = korvex(kQuiet + "--eps 1e-8 --max-iters 100000 --solution " + json + " --write-cbf " + cbf + " " +
                     example("entropy.cbf"));
    ASSERT_EQ(run.exit_code, 0) << run.output;
    // Every field is checked by the JSON writer's own test; here the values of a real solve.
    const std::string solution = fileText(json);
    EXPECT_NE(solution.find("\"status\": \"Solved\""), std::string::npos) << solution;
    // x is the file's eight variables: the distribution (0.35, 0.35, 0.15, 0.15) first.
    std::smatch match;
    ASSERT_TRUE(std::regex_search(solution, match, std::regex("\"x\": \\[([^,]+),([^,]+),([^,]+),([^,]+),")));
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(std::stod(match[k + 1]), k < 2 ? 0.35 : 0.15, 1e-5) << k;

    CommandRun again = korvex(kQuiet + "--eps 1e-8 --max-iters 100000 " + cbf);
    ASSERT_EQ(again.exit_code, 0) << again.output;
    EXPECT_NEAR(summaryObjective(again.output), summaryObjective(run.output), 1e-6);
}

TEST_F(Command, HistoryAndPlotOfBothIterations) {
    const std::string header =
        "iteration,rel_gap,res_pri,res_dual,primal_cost,dual_cost,fpr_norm,time_ms,step_kind,ls_count";
    const std::string csv = scratch("history.csv"), svg = scratch("plot.svg");
    CommandRun standard = korvex(kQuiet + "--history " + csv + " --plot " + svg + " " + example("portfolio.cbf"));
    EXPECT_EQ(standard.exit_code, 0);
    EXPECT_NE(standard.output.find("the standard iteration records no progress history"), std::string::npos);
    EXPECT_EQ(fileText(csv), header + "\n");
    EXPECT_NE(fileText(svg).find("no progress history"), std::string::npos);

    CommandRun run = korvex("--verbose 0 --eps 1e-6 --history " + csv + " --plot " + svg + " " + example("portfolio.cbf"));
    ASSERT_EQ(run.exit_code, 0) << run.output;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(run.output, match, std::regex("Solved, .* ([0-9]+) iterations")));
    const int iterations = std::stoi(match[1]);

    // One row per iteration from 0 to the last, whose figures passed the test; the last
    // row has no step, since the solve stopped before taking one.
    std::istringstream rows(fileText(csv));
    std::string line;
    std::getline(rows, line);
    EXPECT_EQ(line, header);
    int expected_iteration = 0;
    std::vector<std::string> last;
    while (std::getline(rows, line)) {
        std::vector<std::string> cells;
        std::stringstream fields(line);
        for (std::string cell; std::getline(fields, cell, ',');) cells.push_back(cell);
        if (!line.empty() && line.back() == ',') cells.push_back("");
        ASSERT_EQ(cells.size(), 10u) << line;
        EXPECT_EQ(std::stoi(cells[0]), expected_iteration++);
        last = cells;
    }
    EXPECT_EQ(expected_iteration, iterations + 1);
    EXPECT_TRUE(std::stod(last[1]) < 1e-6 && std::stod(last[2]) < 1e-6 && std::stod(last[3]) < 1e-6);
    EXPECT_EQ(last[8], "");

    // The plot's parts are checked by its writer's own test; here it draws the history.
    EXPECT_NE(fileText(svg).find("<polyline"), std::string::npos);
}

TEST_F(Command, NoSolvePrintsTheSizeOfTheProblem) {
    CommandRun run = korvex("--no-solve " + example("maxcut.dat-s"));
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_TRUE(std::regex_match(run.output, std::regex(".*maxcut.dat-s: SDPA, 5 variables, 15 constraints, 5 non-zeros, read in [0-9.]+s\n")))
        << run.output;
}

}  // namespace
