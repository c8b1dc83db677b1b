// The pool behind runTasks. A plain pool on std::thread rather than OpenMP: the pool
// is the only threading in the library, its runs are short and frequent (a few per
// iteration), its tasks are fixed by the caller so that no schedule changes a bit, and
// ThreadSanitizer sees every synchronisation in it (GCC's OpenMP runtime is not
// instrumented, so a sanitised run of OpenMP code reports false races).
//
// A run publishes the task, bumps a generation counter and wakes the workers; every
// participant, the caller included, takes task numbers from one atomic counter until
// none is left, and the caller returns once every participating worker has checked out,
// so no worker touches the caller's context after the run.
#include "reporting/threads.h"

#include <sched.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace korvex {

namespace {

int defaultThreadCount() {
    if (const char* text = std::getenv("KORVEX_THREADS")) {
        char* end = nullptr;
        const long value = std::strtol(text, &end, 10);
        if (end != text && *end == '\0' && value > 0) return value > 256 ? 256 : static_cast<int>(value);
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0) {
        const int cores = CPU_COUNT(&set);
        if (cores > 0) return cores;
    }
    const unsigned hardware = std::thread::hardware_concurrency();
    return hardware > 0 ? static_cast<int>(hardware) : 1;
}

std::atomic<int> chosen_count{0};  // setThreadCount's value, 0 for the default

thread_local bool inside_task = false;

class Pool {
public:
    ~Pool() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
            generation_.fetch_add(1, std::memory_order_release);
        }
        wake_.notify_all();
        for (std::thread& worker : workers_) worker.join();
    }

    // Runs the tasks with up to threads participants; false when the pool is busy with
    // another caller's run (the caller then runs them itself).
    bool run(int count, void (*task)(void*, int), void* context, int threads) {
        std::unique_lock<std::mutex> busy(run_mutex_, std::try_to_lock);
        if (!busy.owns_lock()) return false;
        int helpers = threads - 1;
        if (helpers > count - 1) helpers = count - 1;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            while (static_cast<int>(workers_.size()) < helpers) {
                const int index = static_cast<int>(workers_.size());
                workers_.emplace_back([this, index] { work(index); });
            }
            task_ = task;
            context_ = context;
            count_ = count;
            helpers_ = helpers;
            next_.store(0, std::memory_order_relaxed);
            checked_out_.store(0, std::memory_order_relaxed);
            generation_.fetch_add(1, std::memory_order_release);
        }
        wake_.notify_all();
        takeTasks(task, context, count);
        if (spinUntil([&] { return checked_out_.load(std::memory_order_acquire) == helpers; })) return true;
        std::unique_lock<std::mutex> lock(mutex_);
        done_.wait(lock, [&] { return checked_out_.load(std::memory_order_acquire) == helpers; });
        return true;
    }

private:
    void takeTasks(void (*task)(void*, int), void* context, int count) {
        inside_task = true;
        for (int k = next_.fetch_add(1, std::memory_order_relaxed); k < count;
             k = next_.fetch_add(1, std::memory_order_relaxed)) {
            task(context, k);
        }
        inside_task = false;
    }

    // Runs of a solve follow each other within microseconds to a few hundred: a worker
    // and the caller first poll for a while (some 0.4 ms) and only then sleep, so that a
    // hand-over costs no system call while an iteration runs. Waking a sleeping worker
    // costs tens of microseconds on a virtual machine, more than a run of cone blocks.
    template <class Ready>
    static bool spinUntil(Ready ready) {
        for (int k = 0; k < 20000; ++k) {  // a pause takes some 20 ns
            if (ready()) return true;
#if defined(__x86_64__) || defined(__i386__)
            __builtin_ia32_pause();
#endif
        }
        return ready();
    }

    void work(int index) {
        unsigned seen = 0;
        for (;;) {
            void (*task)(void*, int) = nullptr;
            void* context = nullptr;
            int count = 0;
            spinUntil([&] { return generation_.load(std::memory_order_acquire) != seen; });
            {
                std::unique_lock<std::mutex> lock(mutex_);
                wake_.wait(lock, [&] { return generation_.load(std::memory_order_relaxed) != seen; });
                seen = generation_.load(std::memory_order_relaxed);
                if (stop_) return;
                if (index >= helpers_) continue;
                task = task_;
                context = context_;
                count = count_;
            }
            takeTasks(task, context, count);
            {
                std::lock_guard<std::mutex> lock(mutex_);
                checked_out_.fetch_add(1, std::memory_order_release);
            }
            done_.notify_one();
        }
    }

    std::mutex run_mutex_;  // one run at a time
    std::mutex mutex_;      // guards everything below but the two counters' increments
    std::condition_variable wake_;
    std::condition_variable done_;
    std::vector<std::thread> workers_;
    std::atomic<unsigned> generation_{0};  // written under mutex_, polled without it
    bool stop_ = false;
    void (*task_)(void*, int) = nullptr;
    void* context_ = nullptr;
    int count_ = 0;
    int helpers_ = 0;
    std::atomic<int> next_{0};
    std::atomic<int> checked_out_{0};
};

Pool& pool() {
    static Pool the_pool;
    return the_pool;
}

}  // namespace

int threadCount() {
    const int chosen = chosen_count.load(std::memory_order_relaxed);
    if (chosen > 0) return chosen;
    static const int fallback = defaultThreadCount();
    return fallback;
}

void setThreadCount(int count) { chosen_count.store(count > 0 ? count : 0, std::memory_order_relaxed); }

void runTasks(int count, void (*task)(void* context, int k), void* context) {
    if (count <= 0) return;
    const int threads = threadCount();
    if (count == 1 || threads == 1 || inside_task || !pool().run(count, task, context, threads)) {
        for (int k = 0; k < count; ++k) task(context, k);
    }
}

}  // namespace korvex
