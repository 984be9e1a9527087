#pragma once

#include "kiv/platform/AddressWait.h"
#include "kiv/platform/Compiler.h"

#include <atomic>
#include <cstdint>

namespace kiv::internal {

// A mutex for sections of a few instructions: who finds it held looks for a moment before going to sleep. In contrast
// to the systems' own it may be destroyed as soon as somebody has locked it after its last user unlocked.
class Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() {
        if (!try_lock()) lockSlowly();
    }
    bool try_lock() {
        uint32_t free = Free;
        return m_state.compare_exchange_strong(free, Held, std::memory_order_acquire, std::memory_order_relaxed);
    }
    void unlock() {
        // Whoever waits may destroy the mutex from here on; only its address is used then.
        if (m_state.exchange(Free, std::memory_order_release) == Contended) platform::wakeOneOnAddress(&m_state);
    }

private:
    enum State : uint32_t { Free, Held, Contended };
    static constexpr int spins = 100;

    KIV_NOINLINE void lockSlowly();

    std::atomic<uint32_t> m_state{Free};
};

// What threads sleep on until a state guarded by a Mutex changes. Who sleeps reads prepare() under the mutex, releases
// it and calls sleep(); a notification in between is not lost. Any sleep may end early.
class Condition {
public:
    Condition() = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    uint32_t prepare() const { return m_notifications.load(std::memory_order_acquire); }
    void sleep(uint32_t prepared) const { platform::waitOnAddress(m_notifications, prepared); }

    void notifyOne() {
        m_notifications.fetch_add(1, std::memory_order_release);
        platform::wakeOneOnAddress(&m_notifications);
    }
    void notifyAll() {
        m_notifications.fetch_add(1, std::memory_order_release);
        platform::wakeAllOnAddress(&m_notifications);
    }

    // Releases the mutex of the lock while sleeping.
    template <class Lock>
    void wait(Lock& lock) const {
        const uint32_t prepared = prepare();
        lock.unlock();
        sleep(prepared);
        lock.lock();
    }

private:
    std::atomic<uint32_t> m_notifications{0};
};

} // namespace kiv::internal
