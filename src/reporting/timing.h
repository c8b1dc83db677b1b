// Stopwatch, console interrupt and the version label.
//
// The Timer measures milliseconds on the monotonic counter of the platform layer. The
// interrupt listener turns Ctrl+C into a process-wide flag that a running solve reads
// once per iteration (and the factorisation once per row): startInterruptListener clears
// the flag and installs the handler, endInterruptListener puts back whatever handler the
// process had before and leaves the flag as it is.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>

namespace korvex {

struct Timer {
    std::int64_t start;      // counter value at startTimer
    std::int64_t now;        // counter value at the last readTimer
    std::int64_t frequency;  // counts per second, queried at each startTimer
};

// Queries the frequency, then the counter into start.
void startTimer(Timer* timer);

// Reads the counter into now and returns (now - start) * 1000 / frequency: milliseconds
// since startTimer. The timer keeps running; start does not move.
double readTimer(Timer* timer);

// 1 once the user asked to stop; written only by consoleInterruptHandler (to 1) and by
// startInterruptListener (to 0), and read afresh at every check. The handler runs on
// another thread (or in a signal handler), so the int is atomic: lock-free, and safe in both.
extern std::atomic<int> interruptFlag;

// Clears the flag, then installs consoleInterruptHandler.
void startInterruptListener();

// Removes the handler, restoring the one the process had before; the flag stays.
void endInterruptListener();

// The flag.
int isInterrupted();

// Console handler: for control type 0 (Ctrl+C) sets the flag and returns 1; for any
// other type returns 0 and leaves the flag alone. Writes nothing but the flag.
int consoleInterruptHandler(std::uint32_t controlType);

// "1.2.6-Vrena-Marlet"
const char* versionText();

}  // namespace korvex
