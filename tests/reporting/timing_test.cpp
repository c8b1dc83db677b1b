// Timer units, the interrupt listener on SIGINT, and the version text.
#include <gtest/gtest.h>

#include <csignal>
#include <ctime>

#include "reporting/timing.h"

namespace {

volatile std::sig_atomic_t custom_handler_calls = 0;
void customHandler(int) { custom_handler_calls = custom_handler_calls + 1; }

void sleepMilliseconds(long ms) {
    timespec pause{ms / 1000, (ms % 1000) * 1000000};
    while (nanosleep(&pause, &pause) != 0) {
    }
}

TEST(Timing, ReadTimerGivesMillisecondsFromAFixedStart) {
    Timer timer;
    startTimer(&timer);
    EXPECT_GT(timer.frequency, 0);
    const std::int64_t start = timer.start;
    sleepMilliseconds(20);
    const double first = readTimer(&timer);
    // The clock is monotonic, so the sleep is a lower bound; a unit error (seconds,
    // microseconds) would miss the generous upper bound by orders of magnitude.
    EXPECT_GE(first, 20.0);
    EXPECT_LT(first, 10000.0);
    const double second = readTimer(&timer);
    EXPECT_GE(second, first);
    EXPECT_EQ(timer.start, start);
    EXPECT_GE(timer.now, timer.start);
}

TEST(Timing, SigintWhileListeningSetsTheFlagAndTheOldHandlerComesBack) {
    struct sigaction custom = {};
    custom.sa_handler = customHandler;
    sigemptyset(&custom.sa_mask);
    struct sigaction original;
    ASSERT_EQ(sigaction(SIGINT, &custom, &original), 0);
    custom_handler_calls = 0;

    interruptFlag = 1;
    startInterruptListener();
    EXPECT_EQ(isInterrupted(), 0);  // starting clears the flag
    std::raise(SIGINT);
    EXPECT_EQ(isInterrupted(), 1);
    EXPECT_EQ(custom_handler_calls, 0);  // our handler replaced the custom one

    endInterruptListener();
    EXPECT_EQ(isInterrupted(), 1);  // ending leaves the flag alone
    struct sigaction current;
    ASSERT_EQ(sigaction(SIGINT, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, customHandler);
    std::raise(SIGINT);
    EXPECT_EQ(custom_handler_calls, 1);

    // A listener started twice and ended twice still restores the custom handler.
    startInterruptListener();
    startInterruptListener();
    endInterruptListener();
    endInterruptListener();
    ASSERT_EQ(sigaction(SIGINT, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, customHandler);

    ASSERT_EQ(sigaction(SIGINT, &original, nullptr), 0);
}

TEST(Timing, OnlyTheCtrlCEventSetsTheFlag) {
    startInterruptListener();
    EXPECT_EQ(consoleInterruptHandler(2), 0);  // a close event is not ours
    EXPECT_EQ(consoleInterruptHandler(5), 0);
    EXPECT_EQ(isInterrupted(), 0);
    EXPECT_EQ(consoleInterruptHandler(0), 1);
    EXPECT_EQ(isInterrupted(), 1);
    endInterruptListener();
    startInterruptListener();
    EXPECT_EQ(isInterrupted(), 0);
    endInterruptListener();
}

TEST(Timing, VersionText) { EXPECT_STREQ(versionText(), "1.2.6-Vrena-Marlet"); }

}  // namespace
