// The korvex command as a user runs it: the runs of tests/golden/io_command_cases.txt
// (usage errors, --help, unreadable and gzipped files, solves and their exit codes) with
// their outputs and exit codes kept whole in io_command.txt; then the files they wrote.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
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

// The command stopped from outside: SIGINT and SIGTERM while it reads, sets up and solves,
// and limits of memory. Whatever happens, the exit code is defined and every output file
// either does not exist or parses whole.

const std::string kExamples = KORVEX_EXAMPLES_DIR;

// The command started with its standard output and error on a pipe, under a limit on its
// address space when one is given.
struct Command {
    pid_t pid = -1;
    int out = -1;
    std::string output;

    explicit Command(std::vector<std::string> arguments, rlim_t address_space = RLIM_INFINITY, const std::string& errors = "") {
        int fds[2];
        if (pipe(fds) != 0) return;
        arguments.insert(arguments.begin(), KORVEX_EXECUTABLE);
        pid = fork();
        if (pid == 0) {
            dup2(fds[1], 1);
            dup2(errors.empty() ? fds[1] : open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
            const rlimit limit{address_space, address_space};
            setrlimit(RLIMIT_AS, &limit);
            std::vector<char*> argv;
            for (std::string& argument : arguments) argv.push_back(argument.data());
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(fds[1]);
        out = fds[0];
    }
    // Reads the output until it holds text (true) or the command closes it (false).
    bool readUntil(const std::string& text) {
        char chunk[4096];
        for (ssize_t got; output.find(text) == std::string::npos;) {
            if ((got = read(out, chunk, sizeof chunk)) <= 0) return false;
            output.append(chunk, static_cast<std::size_t>(got));
        }
        return true;
    }
    // The exit code (-1 for a crash) and the peak resident memory in kilobytes.
    std::pair<int, long> finish() {
        readUntil(std::string(1, '\0'));
        close(out);
        int status = 0;
        rusage usage{};
        wait4(pid, &status, 0, &usage);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, usage.ru_maxrss};
    }
};

// A written output is whole: the JSON parses, every CSV line has its ten fields.
void expectWholeOrAbsent(const std::string& json, const std::string& csv, const std::string& context) {
    if (std::filesystem::exists(json)) {
        std::ifstream in(json);
        EXPECT_TRUE(nlohmann::json::accept(in)) << context;
    }
    if (std::filesystem::exists(csv)) {
        const std::string text = fileText(csv);
        std::string line;
        EXPECT_EQ(text.back(), '\n') << context;
        for (std::istringstream lines(text); std::getline(lines, line);) EXPECT_EQ(std::count(line.begin(), line.end(), ','), 9) << context;
    }
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(json).parent_path())) {
        EXPECT_EQ(entry.path().string().find(".korvex-"), std::string::npos) << context << ": " << entry.path();
    }
}

std::string scratchFolder(const char* name) {
    const std::string folder = testing::TempDir() + name + std::to_string(getpid());
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

TEST(Stop, EachSignalInEachPhaseEndsWithItsCodeAndWholeOutputs) {
    const std::string dir = scratchFolder("korvex_stop_");
    const std::string json = dir + "/s.json", csv = dir + "/h.csv", fifo = dir + "/slow.cbf";
    const std::string problem = fileText(kExamples + "/entropy.cbf");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (int number : {SIGINT, SIGTERM}) {
        for (const std::string phase : {"reading", "set-up", "solving", "solving twice"}) {
            std::filesystem::remove(json);
            std::filesystem::remove(csv);
            const std::string context = std::string(strsignal(number)) + " while " + phase;
            // A never-ending solve of a file that arrives through a pipe: the command reads
            // for as long as the pipe stays open.
            const std::string errors = dir + "/errors";
            Command command({"--eps", "1e-300", "--solution", json, "--history", csv, fifo}, RLIM_INFINITY, errors);
            const int writer = open(fifo.c_str(), O_WRONLY);
            ASSERT_GE(writer, 0);
            const std::size_t part = phase == "reading" ? problem.size() / 2 : problem.size();
            ASSERT_EQ(write(writer, problem.data(), part), static_cast<ssize_t>(part));
            if (phase != "reading") close(writer);
            if (phase.rfind("solving", 0) == 0) {
                ASSERT_TRUE(command.readUntil("\n    10|")) << command.output;
            }
            if (phase == "solving twice") {
                // Nothing reads the output now: once the pipe is full (no room for a 4 kB
                // write) the solve blocks on its next line and cannot end by itself; only the
                // second signal ends the command.
                int queued = 0;
                for (int k = 0; k < 10000 && ioctl(command.out, FIONREAD, &queued) == 0 && queued + 4096 < fcntl(command.out, F_GETPIPE_SZ); ++k) usleep(1000);
                usleep(50000);  // the watcher has taken SIGINT back from the solve
                kill(command.pid, number);
                for (int k = 0; k < 10000 && fileText(errors).find("a second signal ends at once") == std::string::npos; ++k) usleep(1000);
            }
            kill(command.pid, number);
            const auto [code, memory] = command.finish();
            // Ended at once, with its message: in reading, and at the second signal (set-up
            // may still be reading).
            if (phase != "set-up") {
                EXPECT_EQ(phase == "reading" || phase == "solving twice", fileText(errors).find(number == SIGINT ? "korvex: interrupted\n" : "korvex: terminated\n") != std::string::npos) << context;
            }
            if (phase == "reading") close(writer);
            EXPECT_EQ(code, 128 + number) << context << "\n" << command.output;
            expectWholeOrAbsent(json, csv, context);
            // Stopped while reading, the command writes nothing; while solving, the solve
            // says it was interrupted.
            EXPECT_TRUE(phase != "reading" || !std::filesystem::exists(json)) << context;
            EXPECT_TRUE(phase != "solving" || nlohmann::json::parse(fileText(json))["statusVal"] == -5) << context;
        }
    }
    std::filesystem::remove_all(dir);
}

// The sanitizers reserve far more address space than any limit of this test.
#if !KORVEX_SANITIZED
constexpr rlim_t kHalfGigabyte = rlim_t{512} << 20;

TEST(Limits, HugeDeclarationsAreRefusedAndMemoryFailuresEndCleanly) {
    const std::string dir = scratchFolder("korvex_limits_");
    auto fileOf = [&](const std::string& name, const std::string& text) {
        std::ofstream(dir + "/" + name) << text;
        return dir + "/" + name;
    };
    // A billion variables, rows or non-zeros declared in a few bytes, or blocks that pass
    // the check one by one and not together: refused up front, gzipped too, with a machine
    // of 512 MB or of its own memory.
    const std::string huge[] = {
        fileOf("vars.cbf", "VER\n3\nOBJSENSE\nMIN\nVAR\n1000000000 1\nF 1000000000\n"),
        fileOf("rows.cbf", "VER\n3\nOBJSENSE\nMIN\nVAR\n1 1\nF 1\nCON\n1000000000 1\nL+ 1000000000\n"),
        fileOf("entries.cbf", "VER\n3\nOBJSENSE\nMIN\nVAR\n1 1\nF 1\nCON\n1 1\nL+ 1\nACOORD\n1000000000\n0 0 1\n"),
        fileOf("rows.dat-s", "1000000000\n1\n2\n1\n"),
        fileOf("block.dat-s", "1\n1\n65535\n1\n"), fileOf("blocks.dat-s", "1\n2\n9000 9000\n1\n"), dir + "/packed.cbf"};
    gzFile packed = gzopen(huge[6].c_str(), "wb");
    gzputs(packed, "VER\n3\nOBJSENSE\nMIN\nVAR\n1 1\nF 1\nCON\n1 1\nL+ 1\nACOORD\n1000000000\n0 0 1\n");
    gzclose(packed);
    for (const std::string& path : huge) {
        for (rlim_t limit : {RLIM_INFINITY, kHalfGigabyte}) {
            Command command({path}, limit);
            const auto [code, memory] = command.finish();
            EXPECT_EQ(code, 3) << path << "\n" << command.output;
            EXPECT_EQ(command.output.rfind(path + ":", 0), 0u) << command.output;
            EXPECT_LT(memory, 100 << 10) << path;
        }
    }
    // Within 512 MB, a problem that reads in a few megabytes but whose Broyden cache of
    // 200 pairs needs 1.3 GB ends with the solver's allocation message and exit 1.
    std::string diagonal = "VER\n3\nOBJSENSE\nMIN\nVAR\n200000 1\nF 200000\nCON\n200000 1\nL+ 200000\nOBJACOORD\n1\n0 1\nACOORD\n200000\n";
    for (int k = 0; k < 200000; ++k) diagonal += std::to_string(k) + " " + std::to_string(k) + " 1\n";
    Command command({"--memory", "200", fileOf("diagonal.cbf", diagonal + "BCOORD\n1\n0 -1\n")}, kHalfGigabyte);
    EXPECT_EQ(command.finish().first, 1) << command.output;
    EXPECT_NE(command.output.find("memory allocation failure"), std::string::npos) << command.output;
    std::filesystem::remove_all(dir);
}
#endif

// Reading takes memory for the problem, not for the file: a file of MEGABYTES of comments
// around portfolio.cbf, gzipped (members of one megabyte each, concatenated) and plain.
void expectReadInLittleMemory(long megabytes) {
    const std::string dir = scratchFolder("korvex_stream_");
    const std::string problem = fileText(kExamples + "/portfolio.cbf");
    std::string comments;
    while (comments.size() < (1 << 20)) comments += "# a comment line that the reader skips, one of very many\n";
    // One gzip member holding the megabyte; members may follow one another in a file.
    gzFile one = gzopen((dir + "/member.gz").c_str(), "wb");
    gzwrite(one, comments.data(), static_cast<unsigned>(comments.size()));
    gzclose(one);
    const std::string member = fileText(dir + "/member.gz");
    for (const bool gzipped : {true, false}) {
        const std::string path = dir + (gzipped ? "/large.cbf.gz" : "/large.cbf");
        if (gzipped) {
            gzFile head = gzopen(path.c_str(), "wb");
            gzwrite(head, problem.data(), static_cast<unsigned>(problem.size()));
            gzclose(head);
        } else {
            std::ofstream(path, std::ios::binary) << problem;
        }
        std::ofstream out(path, std::ios::app | std::ios::binary);
        for (long k = 0; k < megabytes; ++k) out << (gzipped ? member : comments);
        out.close();
        Command command({"--verbose", "0", path});
        const auto [code, memory] = command.finish();
        EXPECT_EQ(code, 0) << path << "\n" << command.output;
        EXPECT_NE(command.output.find("objective 0.83"), std::string::npos) << command.output;
        EXPECT_LT(memory, 100 << 10) << path;
        std::filesystem::remove(path);
    }
    std::filesystem::remove_all(dir);
}

TEST(Limits, A256MegabyteFileIsReadInLittleMemory) { expectReadInLittleMemory(256); }

}  // namespace

// Beyond 2^31 bytes, in the suite labelled slow.
TEST(LimitsSlow, A2GigabyteFileIsReadInLittleMemory) { expectReadInLittleMemory(2100); }
