#include "tests/support/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<size_t> count{0};
}

namespace support {

bool countsLibraryAllocations() {
#if defined(_WIN32)
    return false;
#else
    return true;
#endif
}

size_t allocationCount() {
    return count.load();
}

} // namespace support

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
