#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

// What tests of threads wait with. What does not come within a minute ends the program: nothing is left to be cleaned
// up where threads hang.
namespace support {

inline constexpr std::chrono::seconds patience(60);

[[noreturn]] inline void giveUp(const char* what) {
    std::fprintf(stderr, "waited in vain: %s\n", what);
    std::fflush(stderr);
    std::abort();
}

// Counts events for others to wait for.
class Gate {
public:
    void open() {
        const std::lock_guard lock(m_mutex);
        ++m_opened;
        m_condition.notify_all(); // under the mutex: who waits may destroy the gate
    }
    // Returns once it was opened that often.
    void pass(unsigned times = 1, const char* what = "a gate") {
        std::unique_lock lock(m_mutex);
        if (!m_condition.wait_for(lock, patience, [&] { return m_opened >= times; })) giveUp(what);
    }
    unsigned timesOpened() {
        const std::lock_guard lock(m_mutex);
        return m_opened;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    unsigned m_opened = 0;
};

// For states that nobody announces.
template <class Predicate>
void waitUntil(Predicate isTrue, const char* what = "a state") {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!isTrue()) {
        if (std::chrono::steady_clock::now() > end) giveUp(what);
        std::this_thread::yield();
    }
}

// Ends the program when it outlives the patience: for calls that may hang.
class Watchdog {
public:
    explicit Watchdog(std::string what = "the end of a test") : m_what(std::move(what)) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() { m_end.open(); }

private:
    const std::string m_what;
    Gate m_end;
    std::jthread m_thread{[this] { m_end.pass(1, m_what.c_str()); }};
};

} // namespace support
