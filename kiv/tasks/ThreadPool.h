#pragma once

#include "kiv/core/Object.h"

#include <cstdint>
#include <memory>

namespace kiv {

class TaskQueue;

namespace internal {
class Dispatcher;
}

// The worker threads of the process. It runs no tasks itself: it sends threads to the queues that ask for runners, one
// more for each that is busy with an I/O queue. Threads start when they are needed, up to the number of processors + 1,
// and end when they were idle for 30 seconds and as many others are idle, too. A thread that was started because of an
// I/O queue may serve other queues later on.
// The first pool made becomes the current one until it dies; queues belong to the pool that is current when they are
// made. Ownership: counted, but not to be released by a task. Threads: any. Failing to start a thread ends the process.
class KIV_API ThreadPool : public Object {
    KIV_OBJECT(ThreadPool, Object)
public:
    ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;
    // Waits until the queues that have a thread are empty: a task that pushes itself again and again keeps it waiting.
    // What waits for a thread is not run, and dropped when its queue is destroyed.
    ~ThreadPool() override;

    // Null when there is none.
    static ThreadPool* current();
    // From now on no queue gets a thread; those that have one go on.
    void close();
    // What the destructor does, while others may still hold references.
    void shutdown();

    // Asks for threads that call the queue's processTasks(); for TaskQueue.
    void pushQueue(unsigned count, TaskQueue* queue, bool highPriority);
    void pushQueue(TaskQueue* queue, bool highPriority) { pushQueue(1, queue, highPriority); }
    // Starts one thread, also beyond the limit.
    void startWorker();
    // Lets idle threads that are not needed any more retire; acts every three seconds. On the main thread.
    void processEvents();

    int getThreadCount() const;
    // Of these, without work.
    int getIdleCount() const;
    int getMaxThreads() const;

private:
    const std::shared_ptr<internal::Dispatcher> m_dispatcher;
    uint32_t m_lastHousekeeping;
};

} // namespace kiv
