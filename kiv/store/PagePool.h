#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv::internal {

// Blocks of 4096 bytes for one tree. The first few come one by one, so that small trees stay small; more come from
// chunks of two megabytes, which go back to the system, all but one, once all their blocks are free.
class PagePool {
public:
    static constexpr size_t blockSize = 4096;

    PagePool() = default;
    PagePool(const PagePool&) = delete;
    PagePool& operator=(const PagePool&) = delete;
    // Requires: all blocks were given back.
    ~PagePool();

    // Aligned to 64 bytes. Whoever takes a block gives it back to this pool, or to the one it was swapped with.
    void* allocate();
    void free(void* block) noexcept;
    void swap(PagePool& other) noexcept;
    // What the pool has of the system's memory, in bytes, whether in use or not.
    uint64_t getMemory() const;

private:
    struct Chunk;
    static constexpr unsigned maximumSingles = 16;

    Chunk* openChunk();
    void unlink(Chunk* chunk) noexcept;
    static void release(Chunk* chunk) noexcept;

    void* m_singles[maximumSingles]; // as many as are counted
    unsigned m_singleCount = 0;
    Chunk* m_open = nullptr;  // chunks with free blocks
    Chunk* m_spare = nullptr; // one without used blocks
    uint64_t m_chunkCount = 0;
};

} // namespace kiv::internal
