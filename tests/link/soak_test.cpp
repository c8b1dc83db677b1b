// A thousand solves and deletes in one process, and solves that record their progress
// history: the host's objects all come back, and the heap in use does not grow. (In the sanitizer build LeakSanitizer checks the heap at
// exit instead, since AddressSanitizer keeps freed blocks in quarantine.)
#include <malloc.h>

#include <optional>

#include "link/link_fixture.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KORVEX_HEAP_IS_INSTRUMENTED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KORVEX_HEAP_IS_INSTRUMENTED 1
#endif

namespace {

// Bytes of the C heap in use, where the C library's own count can be trusted: the
// blocks of the arenas and the large ones mapped on their own.
std::optional<std::size_t> heapInUse() {
#ifdef KORVEX_HEAP_IS_INSTRUMENTED
    return std::nullopt;
#else
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
#endif
}

using LinkSoak = LinkTest;

TEST_F(LinkSoak, AThousandSolvesAndDeletesLeaveNothingBehind) {
    const Problem lp = knownProblems()[0];
    const standin::HostProblem problem(coneProgram(lp));
    const Settings settings = linkTestSettings();
    const long problem_tensors = standin::liveTensorCount();
    auto cycle = [&] {
        const std::int32_t id = createInstance();
        ASSERT_EQ(solve(id, problem, settings), KORVEX_SOLVED);
        ASSERT_EQ(vector(&KorvexLink::ret_x, id).size(), 2u);
        ASSERT_EQ(deleteInstance(id), 0);
    };
    // The first solves may leave what lives for the whole process (buffers of the C
    // streams, the store's buckets); from then on every cycle must give back all it takes.
    for (int k = 0; k < 100; ++k) ASSERT_NO_FATAL_FAILURE(cycle());
    const std::optional<std::size_t> before = heapInUse();
    for (int k = 100; k < 1000; ++k) ASSERT_NO_FATAL_FAILURE(cycle());
    const std::optional<std::size_t> after = heapInUse();

    EXPECT_EQ(standin::liveTensorCount(), problem_tensors);
    EXPECT_TRUE(idList().empty());
    if (before && after) {
        // A block lost per cycle would be 900 blocks, at least 14 kB.
        EXPECT_LE(*after, *before + 1024) << "heap in use grew from " << *before << " to " << *after << " bytes";
    }
}

TEST_F(LinkSoak, TheProgressHistoryOfASolveIsReleased) {
    // The Marlet iteration leaves ten history arrays in Info; no accessor reaches them,
    // so the link frees them after every solve.
    const standin::HostProblem problem(coneProgram(knownProblems()[3]));
    Settings settings = linkTestSettings();
    ASSERT_EQ(settings.do_super_korvex, 1);
    settings.record_progress = 1;
    const std::int32_t id = createInstance();
    // The first solves settle the C library's own thresholds for large blocks.
    for (int k = 0; k < 3; ++k) ASSERT_EQ(solve(id, problem, settings), KORVEX_SOLVED);
    const std::optional<std::size_t> before = heapInUse();
    for (int k = 0; k < 20; ++k) ASSERT_EQ(solve(id, problem, settings), KORVEX_SOLVED);
    const std::optional<std::size_t> after = heapInUse();
    if (before && after) {
        // Each solve records 50000 rows of ten entries: over 3 MB a solve if they stayed.
        EXPECT_LE(*after, *before + 1024) << "heap in use grew from " << *before << " to " << *after << " bytes";
    }
}

}  // namespace
