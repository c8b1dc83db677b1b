// The korvex command: solves the cone programs in CBF, SDPA or MPS files.
//
//   korvex [options] FILE...
//
// runCommand is the whole command, so that the executable and the Python module's
// `python3 -m korvex` behave the same.
//
// One file: reads it into the solver's records (defaults from the settings table, the
// command's own iteration limit, changed by the options), calls solveConeProgram, whose
// console report is the output, and ends with one summary line. Several files (or
// --jsonl): each is solved in a process of its own, --jobs at a time (batch.cpp). Exit
// codes: 0 when the solve ended with a verdict (solved, infeasible or unbounded, accurate
// or not), 1 for an indeterminate end or a failure, 130 when interrupted (Ctrl+C or
// --time-limit), 143 when terminated, 2 for a usage error, 3 for a file that cannot be
// read or does not follow its format; for several files the largest of theirs. Running
// out of memory, while reading or in the solver, is a failure (1).
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "korvex/command.h"
#include "korvex/run.h"
#include "korvex/signals.h"
#include "records/records.h"
#include "core/solver.h"
#include "io/options.h"
#include "io/outputs.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "reporting/allocation.h"
#include "reporting/threads.h"
#include "reporting/timing.h"

using namespace korvex;

namespace {

// Bytes of one row of the progress history: three int32 and seven double columns.
constexpr double kProgressRowBytes = 3 * 4 + 7 * 8;

const char kUsage[] =
    "usage: korvex [options] FILE...\n"
    "\n"
    "Solves the cone program in each FILE: CBF (.cbf), SDPA sparse (.dat-s) or MPS (.mps),\n"
    "each optionally gzipped (told by content). Prints the solver's report and a summary line.\n"
    "Several files are solved in parallel processes, each one's output printed whole when it ends.\n"
    "\n"
    "Options of the command:\n"
    "  -h, --help              this text\n"
    "  --version               the solver's version\n"
    "  --format cbf|sdpa|mps   read FILE in this format whatever its name\n"
    "  --solution PATH         write the solution as JSON (several files: a folder of FILE.json)\n"
    "  --jsonl PATH            write one line of solution JSON per file, in the order given\n"
    "  --jobs N                files solved at once (default: the cores this process may use)\n"
    "  --history PATH          write the progress history (Marlet iteration) as CSV\n"
    "  --plot PATH             draw the progress history as an SVG convergence plot\n"
    "  --write-cbf PATH        write the problem as read, in CBF\n"
    "                          (several files: --history, --plot, --write-cbf name folders)\n"
    "  --no-solve              read (and write) the problem, print its size, do not solve\n"
    "  --time-limit SECONDS    interrupt the solve (of each file) after this long\n"
    "  --blas-threads N        BLAS threads (default 1, so that runs are reproducible)\n"
    "  --threads N             solver threads (default KORVEX_THREADS or every core; same bits)\n"
    "  --settings-markdown     the option arguments of the host link as a Markdown table\n"
    "\n"
    "Settings of the solver, as --NAME VALUE, --NAME=VALUE, or with '-' for '_' (the\n"
    "command's defaults; max_iters differs from the library's):\n";

const char kExitCodes[] =
    "\n"
    "Exit codes: 0 a verdict (solved, infeasible or unbounded, inaccurate ones too), 1 an\n"
    "indeterminate end or a failure, 2 a usage error, 3 a file that cannot be read or does not\n"
    "follow its format, 130 interrupted (Ctrl+C or --time-limit), 143 terminated (SIGTERM);\n"
    "for several files the largest of theirs. A first Ctrl+C stops the solve and writes the\n"
    "outputs whole; a second ends at once.\n";

// The settings a solve of the command starts from.
Settings commandDefaults() {
    Settings settings;
    setDefaultSettings(&settings);
    settings.max_iters = kCommandMaxIters;
    return settings;
}

// Fills line from the arguments; "" or the complaint.
std::string parseArguments(int argc, char** argv, CommandLine* line) {
    line->settings = commandDefaults();
    for (int k = 1; k < argc; ++k) {
        std::string_view arg = argv[k];
        if (arg == "-h") {
            line->help = true;
            continue;
        }
        // A single dash and a letter is a short option, and -h the only one; "-" alone is
        // left to the reader as a file name.
        if (arg.size() >= 2 && arg[0] == '-' && arg[1] != '-') {
            return "unknown option " + std::string(arg) + " (-h or --help lists them)";
        }
        if (arg.size() < 2 || arg.substr(0, 2) != "--") {
            line->inputs.emplace_back(arg);
            continue;
        }
        arg.remove_prefix(2);
        if (arg == "help") {
            line->help = true;
            continue;
        }
        if (arg == "version") {
            line->version = true;
            continue;
        }
        if (arg == "settings-markdown" || arg == "settings_markdown") {
            line->markdown = true;
            continue;
        }
        if (arg == "no-solve" || arg == "no_solve") {
            line->no_solve = true;
            continue;
        }
        std::string name(arg), value;
        bool has_value = false;
        if (std::size_t equals = name.find('='); equals != std::string::npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
            has_value = true;
        } else if (k + 1 < argc) {
            value = argv[k + 1];
            has_value = true;
        }
        for (char& c : name) c = c == '_' ? '-' : c;
        if (!has_value) return "--" + name + " needs a value";
        const bool separate = arg.find('=') == std::string_view::npos;
        std::string error;
        if (name == "format") {
            line->format = formatOfWord(value);
            if (line->format == FileFormat::Unknown) return "--format takes cbf, sdpa or mps, not '" + value + "'";
        } else if (name == "solution") {
            line->solution_path = value;
        } else if (name == "jsonl") {
            line->jsonl_path = value;
        } else if (name == "history") {
            line->history_path = value;
        } else if (name == "plot") {
            line->plot_path = value;
        } else if (name == "write-cbf") {
            line->cbf_path = value;
        } else if (name == "time-limit") {
            if (!parseSeconds(value, &line->time_limit)) return "--time-limit takes a positive number of seconds, not '" + value + "'";
        } else if (name == "jobs" || name == "blas-threads" || name == "threads") {
            // Counts of processes or threads.
            std::int64_t count;
            if (!parseInteger(value, &count) || count < 1 || count > 1024) {
                return "--" + name + " takes a whole number from 1 to 1024, not '" + value + "'";
            }
            (name == "jobs" ? line->jobs : name == "threads" ? line->threads : line->blas_threads) = static_cast<int>(count);
        } else {
            int done = applySetting(&line->settings, name, value, &error);
            if (done < 0) return error;
            if (done == 0) return "unknown option --" + std::string(arg.substr(0, arg.find('=')));
        }
        if (separate) ++k;
    }
    if (!line->help && !line->version && !line->markdown && line->inputs.empty()) return "no problem file given";
    if (line->jobs == 0) line->jobs = availableCores();
    return "";
}

int exitCodeOf(int statusVal) {
    switch (statusVal) {
        case KORVEX_SOLVED:
        case KORVEX_SOLVED_INACCURATE:
        case KORVEX_UNBOUNDED:
        case KORVEX_UNBOUNDED_INACCURATE:
        case KORVEX_INFEASIBLE:
        case KORVEX_INFEASIBLE_INACCURATE: return kExitVerdict;
        case KORVEX_SIGINT: return kExitInterrupted;
        default: return kExitNoVerdict;
    }
}

struct SolutionArrays {
    Solution solution{};
    ~SolutionArrays() {
        releaseMemory(solution.x);
        releaseMemory(solution.y);
        releaseMemory(solution.s);
    }
};

int solveOne(const CommandLine& line, StopSignals* stop) {
    const std::string& input = line.inputs.front();
    OutputFile solution_file, history_file, plot_file, cbf_file;
    if (!solution_file.open(line.solution_path) || !history_file.open(line.history_path) ||
        !plot_file.open(line.plot_path) || !cbf_file.open(line.cbf_path)) {
        return kExitUsage;
    }
    setBlasThreads(line.blas_threads);
    setThreadCount(line.threads);

    Timer read_timer;
    startTimer(&read_timer);
    ConicProblem problem;
    try {
        problem = readProblemFile(input, line.format);
    } catch (const ReadError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return kExitFile;
    } catch (const std::bad_alloc&) {
        // Not the file's fault: a failure, as when the solver's set-up runs out of memory.
        std::fprintf(stderr, "%s: not enough memory to read the problem\n", input.c_str());
        return kExitNoVerdict;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", input.c_str(), error.what());
        return kExitFile;
    }
    RunTimes times;
    times.read_ms = readTimer(&read_timer);
    stop->setPhase(RunPhase::Solving);

    if (cbf_file && !(writeCbf(problem, cbf_file.get()) && cbf_file.commit())) {
        std::fprintf(stderr, "korvex: writing %s failed\n", line.cbf_path.c_str());
        return kExitFile;
    }
    if (line.no_solve) {
        std::printf("korvex: %s: %s, %d variables, %d constraints, %zu non-zeros, read in %.3fs\n", input.c_str(),
                    problem.format.c_str(), problem.n, problem.m, problem.values.size(), times.read_ms / 1000);
        return kExitVerdict;
    }

    Settings settings = line.settings;
    Info info{};
    SolutionArrays arrays;
    std::optional<ProgressArrays> progress;
    const bool wants_history = history_file || plot_file;
    if (wants_history) {
        if (settings.do_super_korvex == 1) {
            try {
                // The rows are filled in before the solve, so memory the machine does not
                // have would be claimed page by page until the system ends the process:
                // a history beyond half the physical memory is refused up front.
                const std::int32_t rows = settings.max_iters > 0 ? settings.max_iters : 0;
                const double bytes = static_cast<double>(rows) * kProgressRowBytes;
                const double memory = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGE_SIZE);
                if (bytes > 0.5 * memory) throw std::bad_alloc();
                progress.emplace(rows, &info, &settings);
                settings.record_progress = 1;
            } catch (const std::bad_alloc&) {
                std::fprintf(stderr, "korvex: not enough memory for a progress history of %d iterations; none is kept\n",
                             settings.max_iters);
            }
        } else {
            std::fprintf(stderr, "korvex: the standard iteration records no progress history; --history and --plot stay empty\n");
        }
    }
    ProblemRecords records(problem, &settings);
    std::optional<TimeLimit> limit;
    if (line.time_limit > 0) limit.emplace(line.time_limit);
    Timer solve_timer;
    startTimer(&solve_timer);
    const int status = solveConeProgram(&records.data, &records.cone, &arrays.solution, &info);
    const double elapsed_ms = readTimer(&solve_timer);
    stop->setPhase(RunPhase::Writing);
    const bool out_of_time = limit && limit->reached();
    limit.reset();
    const std::vector<ProgressRow> rows = progress ? progress->rows() : std::vector<ProgressRow>{};

    // An interrupted solve has no iteration count or solve time of its own: say how long
    // it ran, and how many iterations the history holds when one was kept.
    std::string reached = std::string(info.status) + " after " + std::to_string(info.iter) + " iterations";
    if (status == KORVEX_SIGINT) {
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%.3fs", elapsed_ms / 1000);
        reached = std::string(info.status) + " after " + seconds + " of set-up and solving";
        if (!rows.empty()) reached += ", " + std::to_string(rows.size()) + " iterations done";
    }
    std::fflush(stdout);
    if (status == KORVEX_SIGINT) {
        std::printf("korvex: %s, read %.3fs%s\n", reached.c_str(), times.read_ms / 1000,
                    out_of_time ? " (time limit reached)" : "");
    } else {
        std::printf("korvex: %s, objective %.10g (%s), %d iterations, read %.3fs, setup %.3fs, solve %.3fs\n",
                    info.status, fileObjective(problem, info.pobj), problem.maximise ? "max" : "min", info.iter,
                    times.read_ms / 1000, info.setupTime / 1000, info.solveTime / 1000);
    }
    std::fflush(stdout);

    bool written = true;
    if (solution_file) {
        written = writeSolutionJson(solution_file.get(), problem, arrays.solution, info, times) && solution_file.commit();
    }
    if (history_file) written = writeHistoryCsv(history_file.get(), rows) && history_file.commit() && written;
    if (plot_file) {
        written = writeConvergenceSvg(plot_file.get(), rows, problem.source + ": " + reached) && plot_file.commit() && written;
    }
    if (!written) {
        std::fprintf(stderr, "korvex: writing an output file failed\n");
        return kExitFile;
    }
    return exitCodeOf(status);
}

}  // namespace

int korvex::runOne(const CommandLine& line) {
    StopSignals stop;
    int code;
    try {
        code = solveOne(line, &stop);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "korvex: not enough memory\n");
        code = kExitNoVerdict;
    }
    std::fflush(stdout);
    const int received = stop.received();
    return received != 0 ? 128 + received : code;
}

int korvex::runCommand(int argc, char** argv) {
    CommandLine line;
    const std::string error = parseArguments(argc, argv, &line);
    if (line.help) {
        std::printf("%s%s%s", kUsage, settingsHelp(commandDefaults()).c_str(), kExitCodes);
        return kExitVerdict;
    }
    if (line.version) {
        std::printf("korvex %s\n", versionText());
        return kExitVerdict;
    }
    if (line.markdown) {
        std::printf("%s", settingsMarkdown().c_str());
        return kExitVerdict;
    }
    if (!error.empty()) {
        std::fprintf(stderr, "korvex: %s\nTry 'korvex --help'.\n", error.c_str());
        return kExitUsage;
    }
    if (line.inputs.size() > 1 || !line.jsonl_path.empty()) return runBatch(line);
    return runOne(line);
}
