#pragma once

#include <atomic>
#include <cstdint>

namespace kiv::internal {

// A few runs at the head of a queue, which its runners claim without a lock. Filled under the queue's mutex, and only
// when every run has been claimed.
// A claim reads a slot first and then moves the position on; that fails when anybody else has moved it meanwhile, also
// when the block was filled anew, for each filling has a number of its own.
template <class Task>
class RunBlock {
public:
    static constexpr uint32_t capacity = 64;

    struct Run {
        Task* task;
        uint32_t index;
        uint32_t weight;
    };

    bool empty() const { return isEmpty(m_position.load(std::memory_order_acquire)); }

    // Whether all its room was used when it was filled last.
    bool wasFull() const { return size(m_position.load(std::memory_order_relaxed)) == capacity; }

    // For a queue with one runner, which nobody else claims from.
    bool claimAlone(Run& run) {
        const uint64_t position = m_position.load(std::memory_order_relaxed);
        if (isEmpty(position)) return false;
        run = m_slots[next(position)].load();
        m_position.store(position + 1, std::memory_order_release);
        return true;
    }

    bool claim(Run& run) {
        uint64_t position = m_position.load(std::memory_order_acquire);
        do {
            if (isEmpty(position)) return false;
            run = m_slots[next(position)].load();
        } while (!m_position.compare_exchange_weak(position, position + 1, std::memory_order_acq_rel,
                                                   std::memory_order_acquire));
        return true;
    }

    // Requires: empty(); position < capacity; followed by publish().
    void set(uint32_t position, const Run& run) { m_slots[position].store(run); }
    void publish(uint32_t size) {
        const uint64_t filling = (m_position.load(std::memory_order_relaxed) >> 32) + 1;
        m_position.store(filling << 32 | uint64_t{size} << 16, std::memory_order_release);
    }

    // How many of the runs nobody has claimed are the last of their entry.
    uint32_t countLastRuns() const {
        const uint64_t position = m_position.load(std::memory_order_acquire);
        uint32_t count = 0;
        for (uint32_t i = next(position); i < size(position); ++i) count += m_slots[i].load().index == 0;
        return count;
    }

private:
    // From the top: number of the filling (32 bits), runs filled in (16), of these claimed (16).
    static uint32_t next(uint64_t position) { return position & 0xFFFF; }
    static uint32_t size(uint64_t position) { return position >> 16 & 0xFFFF; }
    static bool isEmpty(uint64_t position) { return next(position) == size(position); }

    struct Slot {
        std::atomic<Task*> task;
        std::atomic<uint64_t> numbers;

        Run load() const {
            const uint64_t both = numbers.load(std::memory_order_acquire);
            return {task.load(std::memory_order_acquire), static_cast<uint32_t>(both),
                    static_cast<uint32_t>(both >> 32)};
        }
        void store(const Run& run) {
            task.store(run.task, std::memory_order_release);
            numbers.store(uint64_t{run.weight} << 32 | run.index, std::memory_order_release);
        }
    };

    std::atomic<uint64_t> m_position{0};
    alignas(64) Slot m_slots[capacity];
};

} // namespace kiv::internal
