#include "reporting/timing.h"

#include "reporting/platform.h"

namespace korvex {

void startTimer(Timer* timer) {
    queryPerformanceFrequency(&timer->frequency);
    queryPerformanceCounter(&timer->start);
}

double readTimer(Timer* timer) {
    queryPerformanceCounter(&timer->now);
    return static_cast<double>(timer->now - timer->start) * 1000.0 / static_cast<double>(timer->frequency);
}

std::atomic<int> interruptFlag{0};
static_assert(std::atomic<int>::is_always_lock_free, "the flag is set from a signal handler");

void startInterruptListener() {
    interruptFlag = 0;
    setConsoleCtrlHandler(consoleInterruptHandler, 1);
}

void endInterruptListener() { setConsoleCtrlHandler(consoleInterruptHandler, 0); }

int isInterrupted() { return interruptFlag; }

int consoleInterruptHandler(std::uint32_t controlType) {
    if (controlType != kControlCEvent) return 0;
    interruptFlag = 1;
    return 1;
}

const char* versionText() { return "1.2.6-Vrena-Marlet"; }

}  // namespace korvex
