#include "kiv/platform/MemoryChunk.h"

#include <cstdint>
#include <windows.h>

namespace kiv::platform {

MemoryChunk allocateMemoryChunk(bool) noexcept {
    // An aligned chunk lies somewhere in twice its size; the rest costs addresses only. Large pages need a privilege
    // that applications do not have.
    void* mapping = VirtualAlloc(nullptr, 2 * memoryChunkSize, MEM_RESERVE, PAGE_NOACCESS);
    if (!mapping) return {nullptr, nullptr};
    auto* bytes = static_cast<char*>(mapping);
    bytes += (memoryChunkSize - reinterpret_cast<uintptr_t>(bytes) % memoryChunkSize) % memoryChunkSize;
    void* memory = VirtualAlloc(bytes, memoryChunkSize, MEM_COMMIT, PAGE_READWRITE);
    if (!memory) VirtualFree(mapping, 0, MEM_RELEASE);
    return {memory, memory ? mapping : nullptr};
}

void freeMemoryChunk(const MemoryChunk& chunk) noexcept {
    VirtualFree(chunk.mapping, 0, MEM_RELEASE);
}

} // namespace kiv::platform
