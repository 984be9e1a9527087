#include "kiv/store/PagePool.h"

#include "kiv/platform/MemoryChunk.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kiv::internal {

namespace {

constexpr auto singleAlignment = std::align_val_t{64};

struct FreeBlock {
    FreeBlock* next;
};

} // namespace

// Lies in the chunk's first block. Chunks are aligned to their size, so that a block finds its chunk.
struct PagePool::Chunk {
    platform::MemoryChunk memory;
    Chunk* next;
    Chunk* previous;
    FreeBlock* free;
    unsigned used;  // blocks in use
    unsigned fresh; // the first block that was never used

    static constexpr unsigned blocks = platform::memoryChunkSize / blockSize;

    static Chunk* of(void* block) {
        return reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(block) & ~(platform::memoryChunkSize - 1));
    }
    bool isFull() const { return !free && fresh == blocks; }
    void* take() {
        ++used;
        if (free) return std::exchange(free, free->next);
        return reinterpret_cast<char*>(this) + blockSize * fresh++;
    }
};

PagePool::Chunk* PagePool::openChunk() {
    if (m_open) return m_open;
    if (m_spare) {
        m_open = std::exchange(m_spare, nullptr);
        m_open->next = m_open->previous = nullptr;
    } else {
        // A tree with more than one is large, and will fill the next one, too.
        const platform::MemoryChunk memory = platform::allocateMemoryChunk(m_chunkCount != 0);
        if (!memory.memory) throw std::bad_alloc();
        m_open = new (memory.memory) Chunk{memory, nullptr, nullptr, nullptr, 0, 1};
    }
    ++m_chunkCount;
    return m_open;
}

void PagePool::release(Chunk* chunk) noexcept {
    platform::freeMemoryChunk(platform::MemoryChunk(chunk->memory));
}

PagePool::~PagePool() {
    if (m_spare) release(m_spare);
}

void PagePool::unlink(Chunk* chunk) noexcept {
    (chunk->previous ? chunk->previous->next : m_open) = chunk->next;
    if (chunk->next) chunk->next->previous = chunk->previous;
}

void* PagePool::allocate() {
    if (m_singleCount < maximumSingles && m_chunkCount == 0) {
        void* const block = ::operator new(blockSize, singleAlignment);
        return m_singles[m_singleCount++] = block;
    }
    Chunk* const chunk = openChunk();
    void* const block = chunk->take();
    if (chunk->isFull()) unlink(chunk);
    return block;
}

void PagePool::free(void* block) noexcept {
    void** const end = m_singles + m_singleCount;
    if (void** const single = std::find(m_singles, end, block); single != end) {
        *single = m_singles[--m_singleCount];
        ::operator delete(block, singleAlignment);
        return;
    }
    Chunk* const chunk = Chunk::of(block);
    if (chunk->isFull()) {
        chunk->next = m_open;
        chunk->previous = nullptr;
        if (m_open) m_open->previous = chunk;
        m_open = chunk;
    }
    chunk->free = new (block) FreeBlock{chunk->free};
    if (--chunk->used != 0) return;
    unlink(chunk);
    --m_chunkCount;
    // One is kept, so that a tree whose size goes up and down a little does not ask the system each time.
    if (m_spare) release(m_spare);
    m_spare = chunk;
}

uint64_t PagePool::getMemory() const {
    return m_singleCount * blockSize + (m_chunkCount + (m_spare ? 1 : 0)) * platform::memoryChunkSize;
}

void PagePool::swap(PagePool& other) noexcept {
    void* singles[maximumSingles];
    std::copy_n(m_singles, m_singleCount, singles);
    std::copy_n(other.m_singles, other.m_singleCount, m_singles);
    std::copy_n(singles, m_singleCount, other.m_singles);
    std::swap(m_singleCount, other.m_singleCount);
    std::swap(m_open, other.m_open);
    std::swap(m_spare, other.m_spare);
    std::swap(m_chunkCount, other.m_chunkCount);
}

} // namespace kiv::internal
