// The threads of a solve: a small pool of std::thread workers that runs a list of
// independent tasks, the calling thread taking its share.
//
// Results never depend on the number of threads: a caller splits its work into tasks by
// a rule that looks at the sizes of the problem only, every task writes its own part of
// the output, and a sum over tasks is combined by the caller in task order. So 1, 2 or 16
// threads give the same bits, and the number only decides how fast.
//
// The number in force: setThreadCount's value when positive, else the environment
// variable KORVEX_THREADS when it holds a positive integer, else the cores this process
// may run on (sched_getaffinity). The workers are made on first need and live until the
// process (or the library) is unloaded; they sleep between runs.
#pragma once

#include <type_traits>
#include <utility>

namespace korvex {

// The number of threads a run of tasks may use, at least 1.
int threadCount();

// Sets the number of threads for the runs that follow; 0 or less returns to the default
// (KORVEX_THREADS, or the cores of the process).
void setThreadCount(int count);

// Runs task(context, k) for every k in [0, count) and returns when all are done. The
// tasks run on up to threadCount() threads, the caller's included; a run started from
// inside a task, or while another thread's run is in progress, runs its tasks in order
// on the calling thread. Tasks must not throw.
void runTasks(int count, void (*task)(void* context, int k), void* context);

// runTasks with a callable f(k).
template <class F>
void forEachTask(int count, F&& f) {
    using Callable = std::remove_reference_t<F>;
    runTasks(
        count, [](void* context, int k) { (*static_cast<Callable*>(context))(k); },
        const_cast<void*>(static_cast<const void*>(&f)));
}

// The number of tasks of a split of count items into pieces of at least grain items each
// and at most limit pieces: a function of the sizes alone.
inline int taskCountFor(long long count, long long grain, int limit) {
    if (count <= grain) return 1;
    const long long pieces = count / grain;
    return static_cast<int>(pieces < limit ? pieces : limit);
}

// A split of a pass over count entries into fixed blocks that run side by side: at most
// kMostBlocks of them, of at least kLeastBlock entries each and of even size, a function
// of count alone. A sum over the pass is then the sum of the blocks' sums in block order,
// starting from block 0's, so that a pass of one block sums exactly as a plain loop.
struct FixedBlocks {
    static constexpr int kMostBlocks = 32;
    static constexpr int kLeastBlock = 1 << 15;
    int count, size, total;
    explicit FixedBlocks(int entries) : total(entries) {
        count = entries / kLeastBlock;
        if (count < 1) count = 1;
        if (count > kMostBlocks) count = kMostBlocks;
        size = (entries / count + 2) & ~1;  // even, so that every block starts on an even entry
    }
    int lo(int b) const { return b * size; }
    int hi(int b) const { return b + 1 == count ? total : (b + 1) * size; }
};

// term(0) + term(1) + ... + term(blocks.count - 1), added in block order from term(0): a
// sum over a pass from its blocks' sums.
template <class Term>
double sumOverBlocks(const FixedBlocks& blocks, Term term) {
    double total = term(0);
    for (int b = 1; b < blocks.count; ++b) total += term(b);
    return total;
}

// f(lo, hi, b) for every block b of blocks, side by side. Each block calls a copy of f of
// its own: with a callable that captures by value, the copy's captures live in registers,
// where the block's stores through pointers cannot alias them (a callable reached through
// the pool's pointer is read from memory, and every store to a double could change a
// captured double, so the loop would reload it and not vectorise).
template <class F>
void forEachBlock(const FixedBlocks& blocks, const F& f) {
    forEachTask(blocks.count, [&](int b) {
        F local = f;
        local(blocks.lo(b), blocks.hi(b), b);
    });
}

}  // namespace korvex
