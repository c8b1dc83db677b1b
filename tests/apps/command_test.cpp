// The korvex command as a user runs it: the runs of tests/golden/io_command_cases.txt
// (usage errors, --help, unreadable and gzipped files, solves and their exit codes) with
// their outputs and exit codes kept whole in io_command.txt; then the files they wrote.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "support/golden.h"

namespace {

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// One run of the command: its output (standard output and error together) and its exit
// code, with the folders as $EX and $TMP, the times, iteration counts and the sign of a
// NaN masked, and the objective to the six digits every build of the solver agrees on.
std::string run(const std::string& arguments, const std::string& scratch) {
    const std::string examples = KORVEX_EXAMPLES_DIR;
    const std::string command = replaceAll(replaceAll(arguments, "$EX", examples), "$TMP", scratch);
    std::FILE* pipe = popen((std::string(KORVEX_EXECUTABLE) + command + " 2>&1").c_str(), "r");
    std::string output;
    char chunk[4096];
    for (std::size_t got; pipe != nullptr && (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;) output.append(chunk, got);
    const int status = pipe != nullptr ? pclose(pipe) : -1;
    output = replaceAll(replaceAll(output, examples, "$EX"), scratch, "$TMP");
    output = std::regex_replace(output, std::regex("(read|setup|solve|read in|after) [0-9.]+s"), "$1 Ts");
    output = std::regex_replace(output, std::regex("[0-9]+ iterations"), "N iterations");
    std::string rounded;
    std::smatch objective;
    for (; std::regex_search(output, objective, std::regex("objective (\\S+) \\(")); output = objective.suffix()) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.6g", std::stod(objective[1]));
        rounded += objective.prefix().str() + "objective " + digits + " (";
    }
    output = rounded + output;
    return replaceAll(output, "-nan", "nan") + "[exit " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + "]\n";
}

TEST(Command, EveryRunGivesItsOutputAndExitCodeAndItsFiles) {
    // portfolio.cbf under a name of no format, maxcut.dat-s gzipped (also under its plain
    // name), and the same cut short.
    const std::string scratch = testing::TempDir() + "korvex_command_" + std::to_string(getpid());
    std::filesystem::create_directories(scratch);
    std::filesystem::copy_file(KORVEX_EXAMPLES_DIR "/portfolio.cbf", scratch + "/portfolio.txt");
    const std::string text = fileText(KORVEX_EXAMPLES_DIR "/maxcut.dat-s"), packed = scratch + "/maxcut.dat-s.gz";
    gzFile out = gzopen(packed.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    gzwrite(out, text.data(), static_cast<unsigned>(text.size()));
    gzclose(out);
    std::ofstream(scratch + "/cut.dat-s.gz", std::ios::binary) << fileText(packed).substr(0, fileText(packed).size() / 2);
    std::filesystem::copy_file(packed, scratch + "/packed.dat-s");

    std::istringstream cases(readGolden("io_command_cases.txt"));
    std::string transcript;
    for (std::string line; std::getline(cases, line);) {
        if (line.rfind("korvex", 0) == 0) transcript += "$ " + line + "\n" + run(line.substr(6), scratch);
    }
    expectGolden("io_command.txt", transcript);
    // Outputs are written whole or not at all: a failed read leaves no file behind, and
    // no temporary file stays in the folder.
    for (const auto& entry : std::filesystem::directory_iterator(scratch)) {
        EXPECT_EQ(entry.path().string().find("failed"), std::string::npos) << entry.path();
        EXPECT_EQ(entry.path().string().find(".korvex-"), std::string::npos) << entry.path();
    }

    // --solution: x is the file's eight variables, the distribution (0.35, 0.35, 0.15, 0.15) first.
    std::smatch match;
    const std::string solution = fileText(scratch + "/entropy.json");
    ASSERT_TRUE(std::regex_search(solution, match, std::regex("\"x\": \\[([^,]+),([^,]+),([^,]+),([^,]+),"))) << solution;
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(std::stod(match[k + 1]), k < 2 ? 0.35 : 0.15, 1e-5) << k;
    // The standard iteration records no history: a CSV of its header alone and an empty plot.
    const std::string header = "iteration,rel_gap,res_pri,res_dual,primal_cost,dual_cost,fpr_norm,time_ms,step_kind,ls_count\n";
    EXPECT_EQ(fileText(scratch + "/standard.csv"), header);
    EXPECT_NE(fileText(scratch + "/standard.svg").find("no progress history"), std::string::npos);
    // The Marlet iteration: a row per iteration from 0, the last one's figures below eps
    // and without a step, since the solve stopped before taking one; its plot drawn.
    std::istringstream rows(fileText(scratch + "/history.csv"));
    std::string row, last;
    std::getline(rows, row);
    EXPECT_EQ(row + "\n", header);
    for (int k = 0; std::getline(rows, row); ++k, last = row) EXPECT_EQ(row.substr(0, row.find(',')), std::to_string(k));
    ASSERT_TRUE(std::regex_match(last, match, std::regex("[0-9]+,([^,]+),([^,]+),([^,]+),[^,]*,[^,]*,[^,]*,[^,]*,,"))) << last;
    for (int k = 1; k <= 3; ++k) EXPECT_LT(std::stod(match[k]), 1e-6) << last;
    EXPECT_NE(fileText(scratch + "/plot.svg").find("<polyline"), std::string::npos);
    std::filesystem::remove_all(scratch);
}

}  // namespace
