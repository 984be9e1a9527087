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
}

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

} // namespace support

#if KIV_COUNTS_ALLOCATIONS
void* operator new(size_t size) {
    ++count;
    if (void* block = std::malloc(size != 0 ? size : 1)) return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}
#endif
