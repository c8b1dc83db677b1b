// One allocation function for the whole library, and the owning types built on it.
//
// Every heap block of the solver comes from allocateMemory (or its zero-filled and
// resizing siblings) and goes back through releaseMemory. Failure is a null pointer,
// never an exception. Because there is one road to the heap, a test can make the k-th
// allocation from now fail and watch the failure path that follows: the message, the
// status, and (under the sanitizers) that nothing leaks.
//
// Inside the library, arrays are owned by OwnedArray and records by RecordOwner, so a
// set-up that gives up half-way releases what it made by construction. Records with
// such members are created by createRecord and released by destroyRecord.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace korvex {

// bytes of uninitialised memory, or null on failure. A request of 0 bytes still gives a
// unique non-null block, so that null always means failure.
void* allocateMemory(std::size_t bytes);

// count * size bytes set to zero, or null on failure or when the product overflows.
void* allocateZeroed(std::size_t count, std::size_t size);

// Resizes a block from allocateMemory, keeping the first min(old, new) bytes. On failure
// the result is null and the old block is untouched and still owned by the caller.
void* resizeMemory(void* block, std::size_t bytes);

// Returns a block to the heap; null does nothing.
void releaseMemory(void* block);

// Test hook. After failAllocationAt(k) with k > 0, the k-th call of allocateMemory,
// allocateZeroed or resizeMemory from now fails (once); k = 0 disarms it. Both reset
// the count of allocations.
void failAllocationAt(long k);

// Calls of the three allocating functions since the last failAllocationAt.
long allocationCount();

// Whether the armed failure has happened since the last failAllocationAt.
bool allocationFailureFired();

// count elements of T, uninitialised (zero-filled with allocateArrayZeroed); null on
// failure, for a negative count, or when count * sizeof(T) overflows.
template <class T>
T* allocateArray(std::int64_t count) {
    static_assert(std::is_trivially_copyable_v<T>, "arrays hold plain values");
    if (count < 0 || static_cast<std::uint64_t>(count) > SIZE_MAX / sizeof(T)) return nullptr;
    return static_cast<T*>(allocateMemory(static_cast<std::size_t>(count) * sizeof(T)));
}

template <class T>
T* allocateArrayZeroed(std::int64_t count) {
    static_assert(std::is_trivially_copyable_v<T>, "arrays hold plain values");
    if (count < 0) return nullptr;
    return static_cast<T*>(allocateZeroed(static_cast<std::size_t>(count), sizeof(T)));
}

// An array owned by a record: one pointer wide, null until allocated, released with the
// record. It converts to nothing implicitly; get() hands the raw pointer to kernels and
// to the libraries the solver calls.
template <class T>
class OwnedArray {
public:
    OwnedArray() noexcept = default;
    explicit OwnedArray(T* data) noexcept : data_(data) {}
    OwnedArray(const OwnedArray&) = delete;
    OwnedArray& operator=(const OwnedArray&) = delete;
    OwnedArray(OwnedArray&& other) noexcept : data_(std::exchange(other.data_, nullptr)) {}
    OwnedArray& operator=(OwnedArray&& other) noexcept {
        if (this != &other) reset(std::exchange(other.data_, nullptr));
        return *this;
    }
    ~OwnedArray() { releaseMemory(data_); }

    // Replaces the array by count new elements (zero-filled when zero is true); returns
    // whether the allocation succeeded. On failure the array is null.
    bool allocate(std::int64_t count, bool zero = false) {
        reset(zero ? allocateArrayZeroed<T>(count) : allocateArray<T>(count));
        return data_ != nullptr;
    }
    void reset(T* data = nullptr) noexcept {
        releaseMemory(data_);
        data_ = data;
    }
    T* release() noexcept { return std::exchange(data_, nullptr); }
    T* get() const noexcept { return data_; }
    T& operator[](std::int64_t k) const noexcept { return data_[k]; }
    explicit operator bool() const noexcept { return data_ != nullptr; }

private:
    T* data_ = nullptr;
};

// A new record of type T on the library heap, value-initialised (scalars zero, owned
// arrays null), or null on failure.
template <class T>
T* createRecord() {
    void* block = allocateMemory(sizeof(T));
    if (block == nullptr) return nullptr;
    std::memset(block, 0, sizeof(T));
    return ::new (block) T();
}

// Releases a record made by createRecord, with everything its members own; null does
// nothing.
template <class T>
void destroyRecord(T* record) noexcept {
    if (record == nullptr) return;
    record->~T();
    releaseMemory(record);
}

struct RecordDeleter {
    template <class T>
    void operator()(T* record) const noexcept {
        destroyRecord(record);
    }
};

// Owns a record during a set-up; release() hands it to the caller once complete.
template <class T>
using RecordOwner = std::unique_ptr<T, RecordDeleter>;

}  // namespace korvex
