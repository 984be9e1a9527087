#include "kiv/tasks/TaskMemory.h"

#include "kiv/platform/Compiler.h"
#include "kiv/tasks/Mutex.h"

#include <mutex>
#include <new>
#include <utility>

namespace kiv::internal {
namespace {

constexpr size_t blockSize = 56; // larger tasks are left to the general allocator
constexpr unsigned batchSize = 32;
constexpr unsigned keptBatches = 1024; // two megabytes

struct Block {
    Block* next;
    Block* nextBatch; // of the first block of a batch
};

// What threads have freed and others may use: whole batches.
class Depot {
public:
    // Null when there is none.
    Block* take() {
        const std::lock_guard lock(m_mutex);
        if (!m_batches) return nullptr;
        --m_count;
        return std::exchange(m_batches, m_batches->nextBatch);
    }
    void give(Block* batch) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_count < keptBatches) {
                ++m_count;
                batch->nextBatch = std::exchange(m_batches, batch);
                return;
            }
        }
        free(batch);
    }
    static void free(Block* blocks) {
        while (blocks) ::operator delete(std::exchange(blocks, blocks->next), blockSize);
    }

private:
    Mutex m_mutex;
    Block* m_batches = nullptr;
    unsigned m_count = 0;
};

// Never destroyed: threads that end give back to it.
Depot& depot() {
    static Depot& instance = *new Depot;
    return instance;
}

// The blocks of one thread: up to a batch that is being used up or filled, and a whole one in reserve.
class Cache {
public:
    ~Cache() {
        Depot::free(m_blocks);
        if (m_reserve) depot().give(m_reserve);
        m_blocks = m_reserve = nullptr; // destructors of other objects of the thread may still come
    }

    void* allocate() {
        if (!m_blocks) {
            m_blocks = m_reserve ? std::exchange(m_reserve, nullptr) : depot().take();
            if (!m_blocks) return ::operator new(blockSize);
            m_count = batchSize;
        }
        --m_count;
        return std::exchange(m_blocks, m_blocks->next);
    }
    void free(void* memory) {
        if (m_count == batchSize) {
            if (m_reserve) depot().give(m_reserve);
            m_reserve = std::exchange(m_blocks, nullptr);
            m_count = 0;
        }
        m_blocks = new (memory) Block{m_blocks, nullptr};
        ++m_count;
    }

private:
    Block* m_blocks = nullptr;
    Block* m_reserve = nullptr;
    unsigned m_count = 0;
};

thread_local Cache t_cache;

} // namespace

void* allocateTask(size_t size) {
    // Sanitizers see to it themselves that nobody uses a task that is gone.
    return size > blockSize || KIV_IS_SANITIZED ? ::operator new(size) : t_cache.allocate();
}

void freeTask(void* block, size_t size) noexcept {
    if (size > blockSize || KIV_IS_SANITIZED)
        ::operator delete(block, size);
    else
        t_cache.free(block);
}

} // namespace kiv::internal
