#pragma once

#include "kiv/tasks/LambdaTask.h"
#include "tests/support/Gate.h"

#include <memory>
#include <string>

namespace kiv {

// Looks into a queue.
struct TaskQueuePeek {
    static uint32_t runners(const TaskQueue& queue) { return queue.m_activeRunners.load(); }
    static size_t pendingSegments(TaskQueue& queue) {
        const Lock lock(queue);
        return queue.m_pendingSegments.size();
    }
    // Threads that sleep in wait(), pause() and abort().
    static uint32_t sleepers(TaskQueue& queue) {
        const Lock lock(queue);
        return queue.m_sleepers;
    }

private:
    // The slow way to lock is not exported.
    struct Lock {
        explicit Lock(TaskQueue& locked) : queue(locked) {
            support::waitUntil([&] { return queue.m_mutex.try_lock(); });
        }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        ~Lock() { queue.m_mutex.unlock(); }
        TaskQueue& queue;
    };
};

// Keeps a thread busy: a run of the queue, in progress from the constructor to release().
class Blocker {
public:
    explicit Blocker(TaskQueue& queue, unsigned weight = 0) : Blocker() {
        queue.pushTask(makeTask([state = m_state] { state->block(); }), weight);
        waitForRun();
    }
    Blocker(const Blocker&) = delete;
    Blocker& operator=(const Blocker&) = delete;
    ~Blocker() { release(); }

    void release() { m_state->release.open(); }

private:
    struct State {
        void block() {
            entered.open();
            release.pass();
        }
        support::Gate entered;
        support::Gate release;
    };

    Blocker() = default;
    void waitForRun() { m_state->entered.pass(); }

    const std::shared_ptr<State> m_state = std::make_shared<State>();
};

// Tells whether tasks are destroyed: each that it is for holds a share.
class Shares {
public:
    SmartPointer<TaskQueue::Task> task() const {
        return makeTask([share = m_token] {});
    }
    long inUse() const { return m_token.use_count() - 1; }
    const std::shared_ptr<int>& get() const { return m_token; }

private:
    const std::shared_ptr<int> m_token = std::make_shared<int>();
};

// Nothing is left of the tasks that were pushed.
inline bool isClean(TaskQueue& queue) {
    return queue.empty() && queue.getWorkload() == 0 && queue.getNumberOfQueuedTasks() == 0 &&
           TaskQueuePeek::pendingSegments(queue) == 0;
}

} // namespace kiv
