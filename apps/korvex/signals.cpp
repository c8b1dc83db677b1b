#include "korvex/signals.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "reporting/platform.h"
#include "reporting/timing.h"

namespace korvex {

namespace {

// SIGUSR2, directed at the watcher alone, tells it that the phase changed or, once
// watching is false, to end.
constexpr int kWakeSignal = SIGUSR2;

std::mutex temporaries_mutex;
std::vector<std::string> temporaries;

std::atomic<int> first_signal{0};
std::atomic<int> phase{static_cast<int>(RunPhase::Reading)};
std::atomic<bool> watching{false};
pthread_t watcher_thread;
struct sigaction previous_int, previous_term;
sigset_t previous_mask;

// A signal that lands on a thread other than the watcher goes on to the watcher.
extern "C" void passToWatcher(int number) {
    if (watching.load()) pthread_kill(watcher_thread, number);
}

void say(const char* text) {
    const ssize_t ignored = write(STDERR_FILENO, text, std::strlen(text));
    (void)ignored;
}

[[noreturn]] void endNow(int number) {
    {
        std::lock_guard<std::mutex> lock(temporaries_mutex);
        for (const std::string& path : temporaries) unlink(path.c_str());
    }
    say(number == SIGTERM ? "korvex: terminated\n" : "korvex: interrupted\n");
    _exit(128 + number);
}

// The solve installs the solver's own SIGINT action in place of passToWatcher, and a
// SIGINT that lands on a thread which does not block it (one of OpenBLAS's, started
// before the command) would then only stop the solve, unseen here: no message, and a
// second signal would count as a first. While solving, the watcher puts its action back.
void reclaimInterrupt() {
    struct sigaction current;
    if (sigaction(SIGINT, nullptr, &current) != 0 || current.sa_handler == passToWatcher) return;
    current.sa_handler = passToWatcher;
    current.sa_flags = SA_RESTART;
    sigemptyset(&current.sa_mask);
    sigaction(SIGINT, &current, nullptr);
}

void watch() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, kWakeSignal);
    for (;;) {
        int number;
        const bool solving = phase.load() == static_cast<int>(RunPhase::Solving);
        if (first_signal.load() == 0 && !solving) {
            number = sigwaitinfo(&set, nullptr);
        } else {
            // Every 20 ms while solving: the action back, and once stopping the flag set
            // again (the solver clears it when its iteration starts).
            if (solving) reclaimInterrupt();
            if (solving && first_signal.load() != 0) consoleInterruptHandler(kControlCEvent);
            const timespec tick{0, 20000000};
            number = sigtimedwait(&set, nullptr, &tick);
        }
        if (number == kWakeSignal) {  // the end, or a change of phase
            if (!watching.load()) return;
            continue;
        }
        if (number != SIGINT && number != SIGTERM) continue;
        if (first_signal.load() != 0 || phase.load() == static_cast<int>(RunPhase::Reading)) endNow(number);
        first_signal.store(number);
        say(phase.load() == static_cast<int>(RunPhase::Solving)
                ? "korvex: stopping the solve (a second signal ends at once)\n"
                : "korvex: stopping after the outputs are written (a second signal ends at once)\n");
        if (phase.load() == static_cast<int>(RunPhase::Solving)) consoleInterruptHandler(kControlCEvent);
    }
}

}  // namespace

StopSignals::StopSignals() {
    first_signal.store(0);
    phase.store(static_cast<int>(RunPhase::Reading));
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, kWakeSignal);
    if (pthread_sigmask(SIG_BLOCK, &set, &previous_mask) != 0) return;
    // The watcher inherits the mask, so it waits for the three with all of them blocked.
    if (pthread_create(&watcher_thread, nullptr, [](void*) -> void* { watch(); return nullptr; }, nullptr) != 0) {
        pthread_sigmask(SIG_SETMASK, &previous_mask, nullptr);
        return;
    }
    watching.store(true);
    struct sigaction action {};
    action.sa_handler = passToWatcher;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &previous_int);
    sigaction(SIGTERM, &action, &previous_term);
    started_ = true;
}

StopSignals::~StopSignals() {
    if (!started_) return;
    sigaction(SIGINT, &previous_int, nullptr);
    sigaction(SIGTERM, &previous_term, nullptr);
    watching.store(false);
    pthread_kill(watcher_thread, kWakeSignal);
    pthread_join(watcher_thread, nullptr);
    pthread_sigmask(SIG_SETMASK, &previous_mask, nullptr);
}

void StopSignals::setPhase(RunPhase next) {
    phase.store(static_cast<int>(next));
    if (next == RunPhase::Solving && first_signal.load() != 0) consoleInterruptHandler(kControlCEvent);
    if (watching.load()) pthread_kill(watcher_thread, kWakeSignal);
}

int StopSignals::received() const { return first_signal.load(); }

namespace {

void keepTemporary(const std::string& path) {
    std::lock_guard<std::mutex> lock(temporaries_mutex);
    temporaries.push_back(path);
}

void forgetTemporary(const std::string& path) {
    std::lock_guard<std::mutex> lock(temporaries_mutex);
    temporaries.erase(std::remove(temporaries.begin(), temporaries.end(), path), temporaries.end());
}

}  // namespace

OutputFile::~OutputFile() {
    if (file_ == nullptr) return;
    std::fclose(file_);
    std::remove(temp_.c_str());
    forgetTemporary(temp_);
}

bool OutputFile::open(const std::string& path) {
    if (path.empty()) return true;
    path_ = path;
    temp_ = path + ".korvex-" + std::to_string(getpid());
    keepTemporary(temp_);
    file_ = std::fopen(temp_.c_str(), "wb");
    if (file_ != nullptr) return true;
    forgetTemporary(temp_);
    std::fprintf(stderr, "korvex: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
    return false;
}

bool OutputFile::commit() {
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    const bool renamed = closed && std::rename(temp_.c_str(), path_.c_str()) == 0;
    if (!renamed) std::remove(temp_.c_str());
    forgetTemporary(temp_);
    return renamed;
}

}  // namespace korvex
