// The parts of the korvex command: the options as parsed, one file's run, and the run of
// several files in parallel processes.
#pragma once

#include <string>
#include <vector>

#include "records/records.h"
#include "io/readers.h"

namespace korvex {

constexpr int kExitVerdict = 0;
constexpr int kExitNoVerdict = 1;
constexpr int kExitUsage = 2;
constexpr int kExitFile = 3;
constexpr int kExitInterrupted = 130;

// The command's own iteration limit: a person at the command line wants a solve to end by
// its tolerance or --time-limit, not by the library's cap of 2500. A million still ends a
// solve that stalls, and keeps a progress history (68 bytes an iteration) within 68 MB.
constexpr std::int32_t kCommandMaxIters = 1000000;

struct CommandLine {
    Settings settings{};
    std::vector<std::string> inputs;
    FileFormat format = FileFormat::Unknown;
    double time_limit = 0.0;
    int blas_threads = 1;
    int threads = 0;  // 0: KORVEX_THREADS or the cores of the process
    int jobs = 0;  // files solved at once; 0: the cores this process may use
    // With several files, solution, history, plot and write-cbf name folders.
    std::string solution_path, history_path, plot_path, cbf_path, jsonl_path;
    bool no_solve = false, help = false, version = false, markdown = false;
};

// The cores this process may run on.
int availableCores();

// Solves line.inputs[0] and writes the outputs that line names; returns the exit code.
int runOne(const CommandLine& line);

// Solves every file of line.inputs, line.jobs at a time, each in a process of its own.
int runBatch(const CommandLine& line);

}  // namespace korvex
