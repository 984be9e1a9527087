#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>

// Large pieces of memory straight from the system.

namespace kiv::platform {

constexpr size_t memoryChunkSize = size_t{2} << 20;

struct MemoryChunk {
    void* memory; // memoryChunkSize bytes, aligned to as many, zero
    void* mapping;
};

// As a large page, where the system has such, the chunk takes all its memory at once, and random accesses to it need
// few translations of addresses; otherwise it takes memory as it is written to. Null when there is none.
KIV_API MemoryChunk allocateMemoryChunk(bool asLargePage) noexcept;
KIV_API void freeMemoryChunk(const MemoryChunk& chunk) noexcept;

} // namespace kiv::platform
