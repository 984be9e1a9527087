#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/tasks/Fifo.h"
#include "kiv/tasks/Mutex.h"
#include "kiv/tasks/RunBlock.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <thread>

namespace kiv {

class MainPool;
class Parallel;
class TaskContext;
class ThreadPool;

namespace internal {
class Dispatcher;
}

// Runs tasks one after the other (serial), many at once (parallel), or on the main thread when it pumps the MainPool.
// A worker queue has the threads of the ThreadPool that is current when the queue is made; no thread is its own.
// Ownership: counted; it holds a reference to a task for each run it owes. Who pushes or waits keeps the queue alive.
// Threads: any may call anything, but pause(), resume() and abort() of the main queue, see there. A task may use its
// own queue, even release it for the last time; what would wait for the task itself is refused or does not wait for it.
// Failures: a task that throws is logged and counts as run. Tasks pushed while the queue aborts are dropped silently.
class KIV_API TaskQueue : public Object {
    KIV_OBJECT(TaskQueue, Object)
public:
    class Task;
    struct SegmentInParts;

    // Bits that may be combined. 0 is the main queue; a worker queue has any other value.
    enum Type : uint32_t {
        Main = 0,
        Serial = 0x1, // one run at a time, in the order of pushing
        IO = 0x200,   // runs are expected to block: the pool adds a thread while it serves such a queue
        Parallel = 0x400,
        HighPriority = 0x800, // served before all others
        GlobalParallel = 0x402,
        GlobalDeleteIO = 0xA07,
    };
    friend constexpr Type operator|(Type a, Type b) {
        return static_cast<Type>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
    }

    explicit TaskQueue(Type type, int queueID = 0);
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;
    // Drops what is queued and waits for the runs in progress, but for those it is called from.
    ~TaskQueue() override;

    // Queues `count` runs of the task, each of that weight; they get the indices count - 1 to 0. A task made for the
    // purpose is destroyed after its last run, which may be before this returns: who needs it longer holds a
    // SmartPointer. Requires: count <= 0x1FFFFFFF.
    void pushTaskN(unsigned count, Task* task, unsigned weight = 1) { push(count, task, weight, true); }
    void pushTask(Task* task, unsigned weight = 1) { pushTaskN(1, task, weight); }
    void pushTask(const SmartPointer<Task>& task, unsigned weight = 1) { pushTaskN(1, task.get(), weight); }

    // Tasks pushed from now on start when every task pushed before has finished. Nothing happens on an idle queue.
    void pushBarrier();
    // Returns once the queue is idle, or was since the call. A thread of the pool helps meanwhile. From a run of this
    // queue, and on the main thread for a busy main queue, it is logged and returns at once; another thread is not
    // woken when the main queue becomes idle.
    void wait();
    // Waits until the queue is idle; tasks pushed from then on are kept until resume(). Calls are not counted. Refused
    // like wait(), and always for the main queue.
    void pause();
    void resume();
    // Drops what is queued, also what a pause or a barrier holds back, waits for the runs in progress but for those it
    // is called from, and takes tasks again. The main queue: on the main thread only.
    void abort();

    // True when no run is in progress or waits for a thread; also while paused.
    bool empty() const { return m_activeRunners.load(std::memory_order_acquire) == 0; }
    // Entries before the next barrier; those of several runs count once, and those of a paused queue not at all.
    unsigned getNumberOfQueuedTasks();
    // The weights of all runs that are queued or in progress, modulo 2^32.
    unsigned getWorkload() const {
        // The finished runs first: what they were pushed with is then among the others, and the difference not
        // negative.
        const uint32_t finished = m_finishedWeight.load(std::memory_order_acquire);
        return m_keptWeight.load(std::memory_order_relaxed) - finished;
    }
    bool isAborting() const { return m_aborting.load(std::memory_order_relaxed); }
    Type getType() const { return m_type; }
    bool isMainQueue() const { return m_type == 0; }
    bool isIOQueue() const { return (m_type & IO) != 0; }
    bool isParallelQueue() const { return (m_type & Parallel) != 0; }
    bool isHighPriQueue() const { return (m_type & HighPriority) != 0; }
    int getQueueID() const { return m_queueID; }

    // The runner's loop, for the pools.
    void processTasks();

protected:
    // Like abort(), but for good: the queue takes no tasks any more.
    void disable();

private:
    friend class internal::Dispatcher;
    friend class kiv::Parallel;
    friend class TaskContext;
    friend struct TaskQueuePeek; // of the tests

    struct Entry {
        Task* task;
        uint32_t count; // runs still owed
        uint32_t weight;
    };
    struct Segment {
        internal::Fifo<Entry> entries;
        uint64_t runs = 0; // ever pushed to it
    };
    using Lock = std::unique_lock<internal::Mutex>;
    using Run = internal::RunBlock<Task>::Run;
    struct Runner;

    static Runner* findRunner(const TaskQueue* queue);
    bool isRefused(const char* operation) const;

    void push(unsigned count, Task* task, unsigned weight, bool wakesAtOnce);
    uint32_t addRunners(uint32_t wanted);
    void requestRunners(uint32_t count, bool wakesAtOnce = true);
    void execute(const Run& run, Runner& runner);
    void drop(const Run& run, const Runner& runner);
    bool findRuns(Runner& runner);
    bool refill();
    bool promote(Lock& lock);
    bool takeBackRequests(Lock& lock);
    bool park(Lock& lock, const Runner& runner);
    void joinIn();

    template <class IsOver>
    void sleepUntil(Lock& lock, IsOver isOver);
    void stop(bool forGood);
    bool dropAll(Lock& lock);
    void dropEntries(Lock& lock, internal::Fifo<Entry>& entries);
    void dropEntry(Lock& lock, const Entry& entry);
    void discharge(uint32_t runners);
    void runnersEnded(uint32_t runners);
    // Under the mutex.
    void keepWeight(uint32_t weight) {
        m_keptWeight.store(m_keptWeight.load(std::memory_order_relaxed) + weight, std::memory_order_relaxed);
    }
    // By a run. Those of a serial queue have it for themselves.
    void finishWeight(uint32_t weight) {
        if (isParallelQueue())
            m_finishedWeight.fetch_add(weight, std::memory_order_release);
        else
            m_finishedWeight.store(m_finishedWeight.load(std::memory_order_relaxed) + weight,
                                   std::memory_order_release);
    }

    // What runners and pushers only read has cache lines of its own, and so has what either of them writes.
    const Type m_type;
    const int m_queueID;
    const std::shared_ptr<internal::Dispatcher> m_dispatcher; // of a worker queue, and
    const SmartPointer<MainPool> m_mainPool;                  // of the main queue; null when there was none
    bool m_isAwaited = false; // somebody sleeps until all is run: who sends no threads any more runs it instead
    std::atomic<bool> m_aborting{false}; // written under the mutex

    alignas(64) internal::Mutex m_mutex;
    // Written under the mutex.
    std::atomic<uint32_t> m_activeRunners{0}; // threads that are in processTasks() or are asked to come
    std::atomic<uint32_t> m_idleEpoch{0};     // times the queue became idle
    std::atomic<uint32_t> m_keptWeight{0};    // of all that was pushed and not dropped
    // Free of it.
    std::atomic<uint32_t> m_helpers{0}; // sleepers that would serve a request of this queue
    // All guarded by the mutex.
    internal::Fifo<Entry> m_currentSegment;
    std::deque<Segment> m_pendingSegments;
    internal::Condition m_idleCondition;
    uint32_t m_sleepers = 0;
    uint32_t m_partialSleepers = 0;           // of these, who wait for fewer runners but not for none
    uint32_t m_parked = 0;                    // runners that have left and look whether they are summoned
    std::optional<std::thread::id> m_aborter; // who is in stop(), if anybody
    bool m_isDying = false;                   // disabled or destroyed
    bool m_isDestroyed = false; // who sleeps is to leave, also when it is one of the queue's runs that destroys it

    // What idle runners look at.
    alignas(64) std::atomic<uint32_t> m_summoned{0}; // parked runners that are active again; written under the mutex
    std::atomic<uint32_t> m_waiters{0};              // calls of wait() in progress

    alignas(64) std::atomic<uint32_t> m_finishedWeight{0};
    internal::RunBlock<Task> m_block; // the front of the current segment
};

// What a queue runs: derive, or wrap a callable with makeTask().
class KIV_API TaskQueue::Task : public Object {
    KIV_OBJECT(Task, Object)
public:
    virtual void run(TaskContext& context) = 0;

    static void* operator new(size_t size);
    static void operator delete(void* task, size_t size) noexcept;
    static void* operator new(size_t size, std::align_val_t alignment);
    static void operator delete(void* task, size_t size, std::align_val_t alignment) noexcept;
};

// Into how many pieces to cut `total` units of work.
struct KIV_API TaskQueue::SegmentInParts {
    explicit SegmentInParts(unsigned units);

    unsigned total;
    unsigned parts; // twice the number of processors, but not more than there are units
};

} // namespace kiv
