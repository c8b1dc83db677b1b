// Runs the registered benchmarks and then prints, for every pair of runs named
// "ours/<subject>" and "ref/<subject>", the two times and their ratio. On this shared
// machine an absolute time means little; a ratio measured in the same run does.
#pragma once

#include <map>
#include <string>

// Runs everything (with the usual Google Benchmark flags) and prints the ratio table
// under title. Returns the process exit code.
int runBenchmarksWithRatios(int argc, char** argv, const char* title);

// The time per iteration of every run of the last runBenchmarksWithRatios, in
// nanoseconds (the median where there were repetitions), by run name.
const std::map<std::string, double>& benchmarkTimesNs();

// The same for the CPU time of the benchmark's thread: on a loaded machine the fairer
// figure for work on one thread.
const std::map<std::string, double>& benchmarkCpuTimesNs();
