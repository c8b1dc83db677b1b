#include "reporting/allocation.h"

#include <cstdlib>

namespace korvex {

namespace {

// The test hook: allocations counted since the last failAllocationAt, the one to fail
// (0: none) and whether it has failed. Solves run on one thread, so plain values do.
long allocation_count = 0;
long fail_at = 0;
bool failure_fired = false;

// Counts this allocation and tells whether the hook wants it to fail.
bool hookRefuses() {
    ++allocation_count;
    if (fail_at > 0 && allocation_count == fail_at) {
        failure_fired = true;
        return true;
    }
    return false;
}

}  // namespace

void* allocateMemory(std::size_t bytes) {
    if (hookRefuses()) return nullptr;
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* allocateZeroed(std::size_t count, std::size_t size) {
    if (hookRefuses()) return nullptr;
    if (count == 0 || size == 0) return std::calloc(1, 1);
    return std::calloc(count, size);  // calloc refuses a product that overflows
}

void* resizeMemory(void* block, std::size_t bytes) {
    if (hookRefuses()) return nullptr;
    return std::realloc(block, bytes == 0 ? 1 : bytes);
}

void releaseMemory(void* block) { std::free(block); }

void failAllocationAt(long k) {
    allocation_count = 0;
    fail_at = k > 0 ? k : 0;
    failure_fired = false;
}

long allocationCount() { return allocation_count; }

bool allocationFailureFired() { return failure_fired; }

}  // namespace korvex
