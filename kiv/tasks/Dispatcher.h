#pragma once

#include "kiv/tasks/Mutex.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace kiv {
class TaskQueue;
}

namespace kiv::internal {

// What a ThreadPool is made of: the queues that want threads, and the threads. It is shared with the queues, so that
// one which outlives the pool still finds somebody who says no. An idle worker looks for work for a moment before it
// sleeps; few do so at a time.
class Dispatcher {
public:
    Dispatcher();
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;

    // That of the current pool; null when there is none.
    static std::shared_ptr<Dispatcher> current();
    // Makes it current unless another is.
    static void install(const std::shared_ptr<Dispatcher>& dispatcher);
    static void uninstall(const std::shared_ptr<Dispatcher>& dispatcher);
    // True on a thread of this dispatcher.
    bool isWorker() const;
    // False from the shutdown on.
    bool isRunning() const { return m_running.load(std::memory_order_relaxed); }

    // Whether a queue waits for a thread.
    bool hasRequests() const { return m_unclaimed.load(std::memory_order_relaxed) != 0; }

    // Asks for that many runners of the queue; after the shutdown they are taken off the queue's account at once.
    // With wakesAtOnce false no sleeping thread is woken when another one looks for work: the caller calls
    // wakeForRequests() soon, should there still be work then.
    void push(uint32_t runners, TaskQueue* queue, bool highPriority, bool wakesAtOnce = true) noexcept;
    void wakeForRequests();
    // Takes one request of the queue back, for the caller to serve it.
    bool claim(const TaskQueue* queue);
    // Takes all requests of the queue back and returns how many runners that were.
    uint32_t cancel(const TaskQueue* queue);
    // A thread of this dispatcher that looks for work on its own account, for a moment; it leaves when somebody
    // requests a thread. False when enough others look. `isBusy`: it has found some.
    bool park();
    void unpark(bool isBusy);
    void startWorker() noexcept;
    void wakeSurplus();
    // The beginning of the shutdown. Requests that nobody serves any more are taken off their queues' accounts.
    void close();
    // Waits for the runs in progress and ends all threads.
    void shutdown();

    // How many runners of a parallel queue are of use.
    uint32_t getRunnerLimit() const { return m_minIdleThreads > 2 ? m_minIdleThreads : 2; }
    int getThreadCount();
    int getIdleCount();
    int getMaxThreads();

private:
    struct Request {
        TaskQueue* queue;
        uint32_t runners;
    };
    using Requests = std::deque<Request>;
    using Lock = std::unique_lock<Mutex>;
    struct Worker {
        std::thread thread;
        bool hasEnded = false;
    };

    void balance(Lock& lock, bool wakesAtOnce) noexcept;
    bool startLooking();
    void startThread() noexcept;
    void work(Worker& worker);
    void serve(Lock& lock, TaskQueue* queue);
    TaskQueue* take();
    bool spin(Lock& lock);
    void reap();

    const uint32_t m_minIdleThreads; // that are never retired
    const int m_maxLooking;

    Mutex m_mutex;
    Condition m_workCondition;
    std::atomic<uint64_t> m_unclaimed{0}; // runners in both queues of requests; written under the mutex
    std::atomic<int> m_looking{0};        // threads that look for work without sleeping
    std::atomic<int> m_parked{0};         // of these, who do so at a queue
    std::atomic<bool> m_running{true};    // written under the mutex
    // All guarded by the mutex.
    Requests m_normal;
    Requests m_highPriority;
    int m_maxThreads;
    int m_threads = 0;  // started or about to be, and not ended
    int m_starting = 0; // of these, who have not come to life yet
    int m_idle = 0;     // without work: sleeping or looking
    int m_sleeping = 0; // of these, who have to be woken
    int m_notified = 0; // of these, who were, but have not come yet

    std::mutex m_workersMutex;
    // Guarded by m_workersMutex, but hasEnded, which m_mutex guards.
    std::list<Worker> m_workers;
    bool m_isClosed = false;
};

} // namespace kiv::internal
