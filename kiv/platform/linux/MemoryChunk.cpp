#include "kiv/platform/MemoryChunk.h"

#include <cstdint>
#include <sys/mman.h>

namespace kiv::platform {

MemoryChunk allocateMemoryChunk(bool asLargePage) noexcept {
    // An aligned chunk lies somewhere in twice its size; the rest goes back.
    void* mapping = mmap(nullptr, 2 * memoryChunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED) return {nullptr, nullptr};
    auto* bytes = static_cast<char*>(mapping);
    const size_t before = -reinterpret_cast<uintptr_t>(bytes) % memoryChunkSize;
    const size_t behind = memoryChunkSize - before;
    char* const memory = bytes + before;
    if (before != 0) munmap(bytes, before);
    if (behind != 0) munmap(memory + memoryChunkSize, behind);
    if (asLargePage) madvise(memory, memoryChunkSize, MADV_HUGEPAGE); // a wish, which may be refused
    return {memory, memory};
}

void freeMemoryChunk(const MemoryChunk& chunk) noexcept {
    munmap(chunk.mapping, memoryChunkSize);
}

} // namespace kiv::platform
