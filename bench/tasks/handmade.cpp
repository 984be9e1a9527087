#include "Races.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace {

// What a project without a library writes: a deque, a mutex, a condition variable and some threads.
class Queue {
public:
    explicit Queue(unsigned threads) {
        for (unsigned i = 0; i < threads; ++i) std::thread([this] { work(); }).detach();
    }

    void push(std::function<void()> task) {
        {
            const std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
            ++m_unfinished;
        }
        m_hasWork.notify_one();
    }
    void wait() {
        std::unique_lock lock(m_mutex);
        m_isIdle.wait(lock, [this] { return m_unfinished == 0; });
    }

private:
    void work() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_hasWork.wait(lock, [this] { return !m_tasks.empty(); });
            const std::function<void()> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
            if (--m_unfinished == 0) m_isIdle.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_hasWork;
    std::condition_variable m_isIdle;
    std::deque<std::function<void()>> m_tasks;
    size_t m_unfinished = 0;
};

class Handmade {
public:
    static constexpr const char* name = "hand-made";

    void serial(size_t tasks) { push(m_serial, tasks); }
    void parallel(size_t tasks) { push(m_parallel, tasks); }
    uint32_t sum() {
        std::atomic<uint32_t> all{0};
        for (unsigned i = 0; i < m_threads; ++i) {
            m_parallel.push([&all, i, this] { all += bench::sumOfPart(i, m_threads); });
        }
        m_parallel.wait();
        return all;
    }
    void loop() {
        for (unsigned i = 0; i < m_threads; ++i) {
            m_parallel.push([] {});
        }
        m_parallel.wait();
    }
    void pingPong(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) push(m_serial, 1);
    }
    void volley(size_t rounds) {
        m_hitsLeft = 2 * rounds;
        hit();
        std::unique_lock lock(m_mutex);
        m_isOver.wait(lock, [this] { return m_hitsLeft == 0; });
    }
    void eight(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) push(m_parallel, 8);
    }

private:
    void push(Queue& queue, size_t tasks) {
        for (size_t i = 0; i < tasks; ++i) queue.push(&bench::countRun);
        queue.wait();
    }
    void hit() {
        Queue& side = m_hitsLeft % 2 == 0 ? m_serial : m_otherSide;
        side.push([this] {
            bench::countRun();
            if (m_hitsLeft != 1) {
                --m_hitsLeft;
                hit();
                return;
            }
            const std::lock_guard lock(m_mutex);
            m_hitsLeft = 0;
            m_isOver.notify_one();
        });
    }

    const unsigned m_threads = std::thread::hardware_concurrency();
    Queue m_parallel{m_threads};
    Queue m_serial{1};
    Queue m_otherSide{1};
    size_t m_hitsLeft = 0;
    std::mutex m_mutex;
    std::condition_variable m_isOver;
};

const bool added = bench::addAll<Handmade>();

} // namespace
