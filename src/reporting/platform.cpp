#include "reporting/platform.h"

#include <csignal>
#include <ctime>

namespace korvex {

int queryPerformanceFrequency(std::int64_t* frequency) {
    *frequency = 1000000000;  // the counter below is in nanoseconds
    return 1;
}

int queryPerformanceCounter(std::int64_t* counter) {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return 0;
    *counter = static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
    return 1;
}

namespace {

// The installed handler and the SIGINT action it displaced. The signal trampoline reads
// the handler pointer only; it is written while the action is not installed.
ConsoleControlHandler volatile installed_handler = nullptr;
struct sigaction previous_action;
bool action_installed = false;

extern "C" void sigintTrampoline(int) {
    ConsoleControlHandler handler = installed_handler;
    if (handler != nullptr) handler(kControlCEvent);
}

}  // namespace

int setConsoleCtrlHandler(ConsoleControlHandler handler, int add) {
    if (add != 0) {
        if (handler == nullptr) return 0;
        installed_handler = handler;
        if (action_installed) return 1;
        struct sigaction action = {};
        action.sa_handler = sigintTrampoline;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        if (sigaction(SIGINT, &action, &previous_action) != 0) return 0;
        action_installed = true;
        return 1;
    }
    if (!action_installed) return 1;
    if (sigaction(SIGINT, &previous_action, nullptr) != 0) return 0;
    action_installed = false;
    installed_handler = nullptr;
    return 1;
}

}  // namespace korvex
