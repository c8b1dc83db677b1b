// The allocation hook and the owning types that every set-up of the library relies on.
#include <gtest/gtest.h>

#include <cstdint>

#include "reporting/allocation.h"

namespace {

TEST(Allocation, HookFailsExactlyTheKthAllocationOnce) {
    failAllocationAt(3);
    void* first = allocateMemory(8);
    void* second = allocateZeroed(4, 8);
    EXPECT_FALSE(allocationFailureFired());
    void* third = allocateMemory(8);
    void* fourth = allocateMemory(8);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    EXPECT_EQ(third, nullptr);
    EXPECT_NE(fourth, nullptr);
    EXPECT_TRUE(allocationFailureFired());
    EXPECT_EQ(allocationCount(), 4);
    releaseMemory(first);
    releaseMemory(second);
    releaseMemory(fourth);

    failAllocationAt(0);
    void* again = allocateMemory(8);
    EXPECT_NE(again, nullptr);
    EXPECT_FALSE(allocationFailureFired());
    EXPECT_EQ(allocationCount(), 1);
    releaseMemory(again);
}

TEST(Allocation, FailedResizeKeepsTheOldBlock) {
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
}

TEST(Allocation, SizesThatCannotBeMetGiveNull) {
    failAllocationAt(0);
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
    EXPECT_FALSE(record->values);
    EXPECT_EQ(record->indices.get(), nullptr);
    EXPECT_EQ(record->count, 0);
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

}  // namespace
