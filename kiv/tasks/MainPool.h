#pragma once

#include "kiv/core/Object.h"

#include <deque>
#include <mutex>
#include <thread>

namespace kiv {

class TaskQueue;

// Runs main queues on the main thread, which is the one that makes the pool. The first pool made becomes the current
// one until it dies; main queues belong to the pool that is current when they are made. Ownership: counted; queues hold
// references. Threads: any may push, the main thread pumps.
class KIV_API MainPool : public Object {
    KIV_OBJECT(MainPool, Object)
public:
    MainPool();
    MainPool(const MainPool&) = delete;
    MainPool& operator=(const MainPool&) = delete;
    ~MainPool() override;

    // Null when there is none.
    static MainPool* current();
    // Lets another pool be the current one, while queues still hold references to this.
    void uninstall();
    bool isMainThread() const { return std::this_thread::get_id() == m_mainThread; }

    // Has the queue run in the next pump; wakes nobody. For TaskQueue.
    void pushMainQueue(TaskQueue* queue) noexcept;
    // Runs the queues pushed before the call. A task may call it again, in a loop of its own: the queues that are still
    // to run then run there. A task that a running task pushes to its own queue runs in the same pump: periodic work is
    // for an Alarm.
    void processEvents();
    // Forgets a queue and returns how many times it was waiting. The others keep their order.
    unsigned removeMainQueue(TaskQueue* queue);

private:
    const std::thread::id m_mainThread = std::this_thread::get_id();
    std::mutex m_mutex;
    std::deque<TaskQueue*> m_incoming; // guarded by the mutex
    std::deque<TaskQueue*> m_working;  // guarded by the mutex
};

} // namespace kiv
