#include "kiv/tasks/TaskMemory.h"

#include "kiv/platform/Compiler.h"
#include "kiv/tasks/Mutex.h"

#include <mutex>
#include <new>
#include <utility>

namespace kiv::internal {
namespace {

constexpr size_t blockSize = 64;               // larger tasks are left to the general allocator
constexpr std::align_val_t blockAlignment{64}; // a cache line each: another processor takes them
constexpr unsigned batchSize = 32;
constexpr unsigned keptBatches = 1024; // two megabytes

// Free blocks. They are listed apart from their memory, which another processor has: asking for it can begin before it
// is needed.
struct Batch {
    void* blocks[batchSize];
    Batch* next = nullptr;

    void free() {
        for (void* block : blocks) ::operator delete(block, blockAlignment);
    }
};

// What threads have freed and others may use: full batches, and empty ones.
class Depot {
public:
    // Both give null when there is none.
    Batch* takeFull() { return take(m_full); }
    Batch* takeEmpty() {
        Batch* batch = take(m_empty);
        return batch ? batch : new (std::nothrow) Batch;
    }
    void giveFull(Batch* batch) {
        if (!give(m_full, batch)) {
            batch->free();
            delete batch;
        }
    }
    void giveEmpty(Batch* batch) {
        if (!give(m_empty, batch)) delete batch;
    }

private:
    struct Batches {
        Batch* first = nullptr;
        unsigned count = 0;
    };

    Batch* take(Batches& batches) {
        const std::lock_guard lock(m_mutex);
        Batch* batch = batches.first;
        if (!batch) return nullptr;
        batches.first = batch->next;
        --batches.count;
        return batch;
    }
    bool give(Batches& batches, Batch* batch) {
        const std::lock_guard lock(m_mutex);
        if (batches.count == keptBatches) return false;
        ++batches.count;
        batch->next = std::exchange(batches.first, batch);
        return true;
    }

    Mutex m_mutex;
    Batches m_full;
    Batches m_empty;
};

// Never destroyed: threads that end give back to it.
Depot& depot() {
    static Depot& instance = *new Depot;
    return instance;
}

// The free blocks of one thread: a batch that is being used up or filled, and a full one in reserve.
class Cache {
public:
    ~Cache() {
        while (m_count != 0) ::operator delete(m_batch->blocks[--m_count], blockAlignment);
        if (m_reserve) depot().giveFull(m_reserve);
        delete m_batch;
        // The destructors of other objects of the thread may still come here.
        m_batch = m_reserve = nullptr;
        m_isOver = true;
    }

    void* allocate() {
        if (m_count == 0 && !refill()) return ::operator new(blockSize, blockAlignment);
        void* block = m_batch->blocks[--m_count];
        if (m_count >= prefetched) KIV_PREFETCH_TO_WRITE(m_batch->blocks[m_count - prefetched]);
        return block;
    }
    void free(void* block) {
        if (!m_batch || m_count == batchSize) {
            if (!makeRoom()) return ::operator delete(block, blockAlignment);
        }
        m_batch->blocks[m_count++] = block;
    }

private:
    static constexpr unsigned prefetched = 4; // so many blocks before they are used

    bool refill() {
        if (m_isOver) return false;
        Batch* full = m_reserve ? std::exchange(m_reserve, nullptr) : depot().takeFull();
        if (!full) return false;
        if (m_batch) depot().giveEmpty(m_batch);
        m_batch = full;
        m_count = batchSize;
        for (unsigned i = 0; i < prefetched; ++i) KIV_PREFETCH_TO_WRITE(full->blocks[batchSize - 1 - i]);
        return true;
    }
    bool makeRoom() {
        Batch* const empty = m_isOver ? nullptr : depot().takeEmpty();
        if (!empty) return false;
        if (m_batch) {
            if (m_reserve) depot().giveFull(m_reserve);
            m_reserve = m_batch;
        }
        m_batch = empty;
        m_count = 0;
        return true;
    }

    Batch* m_batch = nullptr;
    Batch* m_reserve = nullptr;
    unsigned m_count = 0;
    bool m_isOver = false;
};

thread_local Cache t_cache;

bool isCached(size_t size) {
    // Sanitizers see to it themselves that nobody uses a task that is gone.
    return size <= blockSize && KIV_HAS_THREAD_DESTRUCTORS && !KIV_IS_SANITIZED;
}

} // namespace

void* allocateTask(size_t size) {
    return isCached(size) ? t_cache.allocate() : ::operator new(size);
}

void freeTask(void* block, size_t size) noexcept {
    if (isCached(size))
        t_cache.free(block);
    else
        ::operator delete(block);
}

} // namespace kiv::internal
