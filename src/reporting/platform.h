// The small platform layer under the clock and the console interrupt.
//
// The solver asks for three things of its platform: a monotonic counter with its
// frequency, and a way to install and remove a handler that the console calls when the
// user presses Ctrl+C. On POSIX the counter is clock_gettime(CLOCK_MONOTONIC) in
// nanoseconds and the console handler rides on a SIGINT action.
#pragma once

#include <cstdint>

namespace korvex {

// Counts per second of queryPerformanceCounter. Returns non-zero on success.
int queryPerformanceFrequency(std::int64_t* frequency);

// Current value of the monotonic counter. Returns non-zero on success.
int queryPerformanceCounter(std::int64_t* counter);

// Console control event of Ctrl+C; other events have other, non-zero, types.
constexpr std::uint32_t kControlCEvent = 0;

// A console handler returns non-zero when it has handled the event.
using ConsoleControlHandler = int (*)(std::uint32_t controlType);

// add non-zero: installs handler for Ctrl+C, keeping the action the process had before
// (a second install replaces the handler and keeps the first saved action). add 0:
// removes it and puts back that earlier action; removing when nothing is installed does
// nothing. Returns non-zero on success.
int setConsoleCtrlHandler(ConsoleControlHandler handler, int add);

}  // namespace korvex
