// The allocation hook of the failure sweeps, printTo's two paths, the timer, and the listener on SIGINT.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <string>

#include "reporting/allocation.h"
#include "reporting/print.h"
#include "reporting/timing.h"
#include "support/capture.h"

using namespace korvex;

namespace {

TEST(Allocation, HookFailsTheKthCallOnceCountingFromItsArming) {
    failAllocationAt(3);  // the third call from here fails, and only that one
    void* b[] = {allocateMemory(8), allocateZeroed(1, 8), resizeMemory(nullptr, 8), resizeMemory(nullptr, 8)};
    EXPECT_TRUE(b[0] && b[1] && !b[2] && b[3] && allocationFailureFired() && allocationCount() == 4);
    for (void* block : b) releaseMemory(block);
    failAllocationAt(0);
}

TEST(Print, BufferedPathToStandardOutputCutAt4095AndDirectPathToItsStream) {
    const std::string long_text(5000, 'k');
    CapturedOutput out, err(stderr);
    printTo(0, stderr, "x = %d, y = %.2f\n", 7, 2.5);  // the buffered path ignores the stream
    printPlain("%s|%li\n", "plain", 42L);
    printTo(0, stdout, "%s", long_text.c_str());
    printTo(0, stdout, "|%s|", std::string(4095, 'e').c_str());  // 4097 characters
    printTo(0, stdout, "%s", std::string(4095, 'f').c_str());     // exactly fits
    printTo(1, stderr, "%s %i\n", "direct", -3);                  // no limit on the direct path
    printTo(1, stderr, "%s", long_text.c_str());
    EXPECT_EQ(err.finish(), "direct -3\n" + long_text);
    EXPECT_EQ(out.finish(), "x = 7, y = 2.50\nplain|42\n" + std::string(4095, 'k') + "|" + std::string(4094, 'e') +
                                std::string(4095, 'f'));
}

TEST(Timing, MillisecondsFromAFixedStartAndTheListenerOnSigint) {
    Timer timer;
    startTimer(&timer);
    const std::int64_t start = timer.start;
    for (timespec pause{0, 20 * 1000000}; nanosleep(&pause, &pause) != 0;) {
    }
    // The clock is monotonic, so the sleep is a lower bound; a wrong unit misses the generous
    // upper bound by orders of magnitude.
    const double first = readTimer(&timer);
    EXPECT_TRUE(first >= 20.0 && first < 10000.0) << first;
    EXPECT_TRUE(readTimer(&timer) >= first && timer.start == start);

    // SIGINT while listening sets the flag, and the handler that was there comes back.
    static volatile std::sig_atomic_t custom_calls = 0;
    struct sigaction custom = {}, original, current;
    custom.sa_handler = [](int) { custom_calls = custom_calls + 1; };
    sigemptyset(&custom.sa_mask);
    ASSERT_EQ(sigaction(SIGINT, &custom, &original), 0);
    interruptFlag = 1;
    startInterruptListener();
    startInterruptListener();  // a second start keeps the handler that the first displaced
    EXPECT_TRUE(isInterrupted() == 0 && consoleInterruptHandler(2) == 0 && isInterrupted() == 0);  // close: not ours
    std::raise(SIGINT);
    EXPECT_TRUE(isInterrupted() == 1 && custom_calls == 0);
    endInterruptListener();
    endInterruptListener();
    EXPECT_EQ(isInterrupted(), 1);  // ending leaves the flag alone
    sigaction(SIGINT, nullptr, &current);
    EXPECT_EQ(current.sa_handler, custom.sa_handler);
    std::raise(SIGINT);
    EXPECT_EQ(custom_calls, 1);
    ASSERT_EQ(sigaction(SIGINT, &original, nullptr), 0);
    EXPECT_EQ(consoleInterruptHandler(0), 1);
    interruptFlag = 0;
}

}  // namespace
