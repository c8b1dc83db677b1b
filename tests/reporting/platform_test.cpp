// The allocation hook and the owning types every set-up relies on; the two paths of
// printTo with the cut of the buffered one, and formatInto; the timer, the interrupt
// listener on SIGINT and the version text.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "reporting/allocation.h"
#include "reporting/print.h"
#include "reporting/timing.h"
#include "support/capture.h"

using namespace korvex;

namespace {

TEST(Allocation, HookFailsExactlyTheKthAllocationOnce) {
    failAllocationAt(3);
    void* first = allocateMemory(8);
    void* second = allocateZeroed(4, 8);
    EXPECT_FALSE(allocationFailureFired());
    void* third = allocateMemory(8);
    void* fourth = allocateMemory(8);
    EXPECT_TRUE(first && second && !third && fourth);
    EXPECT_TRUE(allocationFailureFired());
    EXPECT_EQ(allocationCount(), 4);
    for (void* block : {first, second, fourth}) releaseMemory(block);

    failAllocationAt(0);
    void* again = allocateMemory(8);
    EXPECT_NE(again, nullptr);
    EXPECT_FALSE(allocationFailureFired());
    EXPECT_EQ(allocationCount(), 1);
    releaseMemory(again);
}

TEST(Allocation, FailedResizeKeepsTheOldBlockAndImpossibleSizesGiveNull) {
    failAllocationAt(0);
    auto* values = static_cast<double*>(allocateMemory(4 * sizeof(double)));
    ASSERT_NE(values, nullptr);
    for (int k = 0; k < 4; ++k) values[k] = k + 0.5;
    failAllocationAt(1);
    EXPECT_EQ(resizeMemory(values, 8 * sizeof(double)), nullptr);
    EXPECT_EQ(values[3], 3.5);
    failAllocationAt(0);
    auto* grown = static_cast<double*>(resizeMemory(values, 1000 * sizeof(double)));
    ASSERT_NE(grown, nullptr);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(grown[k], k + 0.5);
    releaseMemory(grown);

    EXPECT_EQ(allocateArray<double>(-1), nullptr);
    EXPECT_EQ(allocateArrayZeroed<int>(-5), nullptr);
    EXPECT_EQ(allocateArray<double>(INT64_MAX / 2), nullptr);        // count * 8 overflows
    EXPECT_EQ(allocateArrayZeroed<double>(INT64_MAX / 2), nullptr);  // calloc refuses the product
    EXPECT_EQ(allocateArray<double>(INT64_MAX / 8), nullptr);        // fits, but no heap has it
    // A zero count still gives a block, so that null always means failure.
    double* empty = allocateArray<double>(0);
    EXPECT_NE(empty, nullptr);
    releaseMemory(empty);
}

struct TwoArrays {
    OwnedArray<double> values;
    OwnedArray<int> indices;
    int count;
};

TEST(Allocation, RecordsStartZeroedAndReleaseWhatTheyOwn) {
    failAllocationAt(0);
    TwoArrays* record = createRecord<TwoArrays>();
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(!record->values && record->indices.get() == nullptr && record->count == 0);
    ASSERT_TRUE(record->values.allocate(5, true));
    for (int k = 0; k < 5; ++k) EXPECT_EQ(record->values[k], 0.0);
    ASSERT_TRUE(record->indices.allocate(3));
    destroyRecord(record);  // the sanitizer build reports a leak if the arrays stay
    destroyRecord<TwoArrays>(nullptr);

    // A set-up that gives up half-way frees what it made when its owner goes out of scope.
    failAllocationAt(3);
    {
        RecordOwner<TwoArrays> owner(createRecord<TwoArrays>());
        ASSERT_TRUE(owner);
        EXPECT_TRUE(owner->values.allocate(10));
        EXPECT_FALSE(owner->indices.allocate(10));
        EXPECT_EQ(owner->indices.get(), nullptr);
    }
    EXPECT_TRUE(allocationFailureFired());
    failAllocationAt(1);
    EXPECT_EQ(createRecord<TwoArrays>(), nullptr);
    failAllocationAt(0);
}

std::string readAll(std::FILE* file) {
    std::fflush(file);
    std::rewind(file);
    std::string text;
    for (int ch; (ch = std::fgetc(file)) != EOF;) text.push_back(static_cast<char>(ch));
    std::fclose(file);
    return text;
}

TEST(Print, BufferedPathToStandardOutputCutAt4095AndDirectPathToTheStream) {
    std::FILE* other = std::tmpfile();
    ASSERT_NE(other, nullptr);
    const std::string long_text(5000, 'k');
    CapturedOutput out;
    // The buffered path ignores the stream and keeps the call order.
    printTo(0, other, "x = %d, y = %.2f\n", 7, 2.5);
    printTo(0, stderr, "ERROR: %s\n", "kept in call order");
    printPlain("%s|%li\n", "plain", 42L);
    printTo(0, stdout, "%s", long_text.c_str());
    printTo(0, stdout, "|%s|", std::string(4095, 'e').c_str());  // 4097 characters
    printTo(0, stdout, "%s", std::string(4095, 'f').c_str());     // exactly fits
    printTo(1, other, "%s %i\n", "direct", -3);                   // the direct path, no limit
    printTo(1, other, "%s", long_text.c_str());
    EXPECT_EQ(out.finish(), "x = 7, y = 2.50\nERROR: kept in call order\nplain|42\n" + std::string(4095, 'k') + "|" +
                                std::string(4094, 'e') + std::string(4095, 'f'));
    EXPECT_EQ(readAll(other), "direct -3\n" + long_text);
}

TEST(Print, FormatIntoReturnsTheCountAndTerminates) {
    char buffer[64];
    std::memset(buffer, 'z', sizeof buffer);
    EXPECT_EQ(formatInto(buffer, "nnz in A = %li", 123L), 14);
    EXPECT_STREQ(buffer, "nnz in A = 123");
    int length = formatInto(buffer, "Cones:");
    length += formatInto(buffer + length, "\tlinear vars: %li\n", 2L);
    EXPECT_EQ(length, 22);
    EXPECT_STREQ(buffer, "Cones:\tlinear vars: 2\n");
    EXPECT_EQ(formatInto(buffer, "%s", ""), 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST(Timing, ReadTimerGivesMillisecondsFromAFixedStartAndTheVersionText) {
    Timer timer;
    startTimer(&timer);
    EXPECT_GT(timer.frequency, 0);
    const std::int64_t start = timer.start;
    timespec pause{0, 20 * 1000000};
    while (nanosleep(&pause, &pause) != 0) {
    }
    const double first = readTimer(&timer);
    // The clock is monotonic, so the sleep is a lower bound; a unit error (seconds,
    // microseconds) would miss the generous upper bound by orders of magnitude.
    EXPECT_TRUE(first >= 20.0 && first < 10000.0) << first;
    EXPECT_GE(readTimer(&timer), first);
    EXPECT_EQ(timer.start, start);
    EXPECT_GE(timer.now, timer.start);
    EXPECT_STREQ(versionText(), "1.2.6-Vrena-Marlet");
}

volatile std::sig_atomic_t custom_handler_calls = 0;
void customHandler(int) { custom_handler_calls = custom_handler_calls + 1; }

void (*currentHandler())(int) {
    struct sigaction current;
    sigaction(SIGINT, nullptr, &current);
    return current.sa_handler;
}

TEST(Timing, SigintWhileListeningSetsTheFlagAndTheOldHandlerComesBack) {
    struct sigaction custom = {}, original;
    custom.sa_handler = customHandler;
    sigemptyset(&custom.sa_mask);
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
    EXPECT_EQ(currentHandler(), customHandler);
    std::raise(SIGINT);
    EXPECT_EQ(custom_handler_calls, 1);

    // A listener started twice and ended twice still restores the custom handler.
    startInterruptListener();
    startInterruptListener();
    endInterruptListener();
    endInterruptListener();
    EXPECT_EQ(currentHandler(), customHandler);
    ASSERT_EQ(sigaction(SIGINT, &original, nullptr), 0);

    // Only the Ctrl+C event of the console handler sets the flag; a close event is not ours.
    startInterruptListener();
    EXPECT_EQ(consoleInterruptHandler(2), 0);
    EXPECT_EQ(consoleInterruptHandler(5), 0);
    EXPECT_EQ(isInterrupted(), 0);
    EXPECT_EQ(consoleInterruptHandler(0), 1);
    EXPECT_EQ(isInterrupted(), 1);
    endInterruptListener();
    startInterruptListener();
    EXPECT_EQ(isInterrupted(), 0);
    endInterruptListener();
}

}  // namespace
