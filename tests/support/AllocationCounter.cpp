#include "tests/support/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

// The thread sanitizer brings its own operator new and lets nobody else have one.
#if defined(__SANITIZE_THREAD__)
#define KIV_COUNTS_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KIV_COUNTS_ALLOCATIONS 0
#endif
#endif
#ifndef KIV_COUNTS_ALLOCATIONS
#define KIV_COUNTS_ALLOCATIONS 1
#endif

namespace {
std::atomic<size_t> count{0};
// The allocations that fail, by their numbers.
std::atomic<size_t> firstFailure{~size_t{0}}, failures{0};

[[maybe_unused]] bool mayAllocate() {
    const size_t number = count++;
    return number < firstFailure || number - firstFailure >= failures;
}
} // namespace

namespace support {

bool countsLibraryAllocations() {
#if defined(_WIN32)
    return false;
#else
    return KIV_COUNTS_ALLOCATIONS != 0;
#endif
}

size_t allocationCount() {
    return count.load();
}

AllocationFault::AllocationFault(size_t successes, size_t times) {
    firstFailure = count + successes;
    failures = times;
}

AllocationFault::~AllocationFault() {
    failures = 0;
}

bool AllocationFault::happened() const {
    return count > firstFailure;
}

} // namespace support

#if KIV_COUNTS_ALLOCATIONS
void* operator new(size_t size) {
    void* block = mayAllocate() ? std::malloc(size != 0 ? size : 1) : nullptr;
    if (!block) throw std::bad_alloc();
    return block;
}
// Sanitizers have one of their own, whose blocks the function below would not know.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return mayAllocate() ? std::malloc(size != 0 ? size : 1) : nullptr;
}

void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

#if !defined(_WIN32)
void* operator new(size_t size, std::align_val_t alignment) {
    void* block = nullptr;
    if (!mayAllocate() || ::posix_memalign(&block, static_cast<size_t>(alignment), size != 0 ? size : 1) != 0) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t, std::align_val_t) noexcept {
    std::free(block);
}
#endif
#endif
