#include "kiv/tasks/TaskQueue.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"
#include "kiv/tasks/Dispatcher.h"
#include "kiv/tasks/HardwareConcurrency.h"
#include "kiv/tasks/MainPool.h"
#include "kiv/tasks/TaskContext.h"
#include "kiv/tasks/TaskMemory.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <thread>

namespace kiv {
namespace {

constexpr unsigned maximalCount = 0x1FFFFFFF; // of references that one push may add to a task
constexpr int waitSpins = 400;
constexpr int waitYields = 20;
constexpr int parkSpins = 100;
constexpr int breathSpins = 120;
constexpr unsigned breathlessTurns = 4;
constexpr uint32_t noLimit = std::numeric_limits<uint32_t>::max();

void logFailure(const char* what) {
    logging::MessageStream(3, 2) << "[TASKS] a task has failed: " << what;
}

// For traces.
const char* nameOf(const TaskQueue& queue) {
    if (queue.isMainQueue()) return "main queue";
    if (queue.isIOQueue()) return "I/O queue";
    return queue.isParallelQueue() ? "parallel queue" : "serial queue";
}

} // namespace

// The references of a queue, without a locked instruction where nobody else has the object: who pushes an object
// without references is alone with it, and so is who holds all there are.
struct internal::QueueReferences {
    static void take(Object* object, uint32_t count) {
        if (object->m_referenceCount.load(std::memory_order_relaxed) != 0)
            object->increaseReferenceCountBy(count);
        else
            object->m_referenceCount.store(static_cast<int32_t>(count), std::memory_order_relaxed);
    }
    static void release(Object* object, uint32_t count) {
        if (object->m_referenceCount.load(std::memory_order_acquire) != static_cast<int32_t>(count))
            object->decreaseReferenceCountBy(count);
        else
            object->deleteSelf();
    }
};

using internal::QueueReferences;

// One call of processTasks, on the stack of its thread; they nest.
struct TaskQueue::Runner {
    explicit Runner(TaskQueue* servedQueue) : queue(servedQueue), outer(top) { top = this; }
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;
    ~Runner() { top = outer; }

    TaskQueue* const queue;
    Runner* const outer;
    bool isQueueGone = false; // its destructor ran inside this call
    bool hasAborted = false;  // the queue, from inside this call
    // The task that ran last and the references it is owed: runs of one task give theirs back together.
    Task* finished = nullptr;
    uint32_t finishedRuns = 0;
    unsigned turns = 0; // times it found more runs without having parked

    void release() {
        if (finished) QueueReferences::release(std::exchange(finished, nullptr), std::exchange(finishedRuns, 0u));
    }

    // Whoever takes runs as fast as they are pushed is in the pusher's way at each of them: a moment later there are
    // more to take at once. Not while somebody waits for the queue.
    void breathe() {
        if (++turns < breathlessTurns || queue->m_block.wasFull()) return;
        for (int i = 0; i < breathSpins && queue->m_waiters.load(std::memory_order_relaxed) == 0; ++i) KIV_PAUSE();
    }

    static thread_local Runner* top;
};

thread_local TaskQueue::Runner* TaskQueue::Runner::top = nullptr;

TaskQueue::SegmentInParts::SegmentInParts(unsigned units)
    : total(units), parts(std::min(units, 2 * getHardwareConcurrency())) {}

void* TaskQueue::Task::operator new(size_t size) {
    return internal::allocateTask(size);
}

void TaskQueue::Task::operator delete(void* task, size_t size) noexcept {
    internal::freeTask(task, size);
}

void* TaskQueue::Task::operator new(size_t size, std::align_val_t alignment) {
    return ::operator new(size, alignment);
}

void TaskQueue::Task::operator delete(void* task, size_t, std::align_val_t alignment) noexcept {
    ::operator delete(task, alignment);
}

TaskQueue::TaskQueue(Type type, int queueID)
    : m_type(type), m_queueID(queueID), m_dispatcher(type == Main ? nullptr : internal::Dispatcher::current()),
      m_mainPool(type == Main ? MainPool::current() : nullptr) {}

TaskQueue::~TaskQueue() {
    stop(true);
    for (Runner* runner = Runner::top; runner; runner = runner->outer) {
        if (runner->queue == this) runner->isQueueGone = true;
    }
    Lock lock(m_mutex);
    m_isDestroyed = true;
    while (m_sleepers != 0 || m_parked != 0) {
        m_idleCondition.notifyAll();
        m_idleCondition.wait(lock);
    }
}

// ---- Pushing.

void TaskQueue::push(unsigned count, Task* task, unsigned weight, bool wakesAtOnce) {
    assert(task || count == 0);
    assert(count <= maximalCount);
    if (count == 0 || !task) return;
    QueueReferences::take(task, count);
    Lock lock(m_mutex);
    if (m_aborting.load(std::memory_order_relaxed)) {
        lock.unlock();
        task->decreaseReferenceCountBy(count);
        return;
    }
    const bool isHeldBack = !m_pendingSegments.empty();
    try {
        (isHeldBack ? m_pendingSegments.back().entries : m_currentSegment).push_back({task, count, weight});
    } catch (...) {
        lock.unlock();
        task->decreaseReferenceCountBy(count);
        throw;
    }
    if (isHeldBack) m_pendingSegments.back().runs += count;
    keepWeight(count * weight);
    const uint32_t requested = isHeldBack ? 0 : addRunners(count);
    lock.unlock();
    if (requested != 0) requestRunners(requested, wakesAtOnce);
}

// Puts as many runners on the account as are of use for so many more runs, and returns how many of these have to be
// requested. Under the mutex.
uint32_t TaskQueue::addRunners(uint32_t wanted) {
    const uint32_t active = m_activeRunners.load(std::memory_order_relaxed);
    uint32_t limit = 1;
    if (isParallelQueue()) limit = isIOQueue() || !m_dispatcher ? noLimit : m_dispatcher->getRunnerLimit();
    if (active >= limit) return 0;
    const uint32_t added = std::min(wanted, limit - active);
    m_activeRunners.store(active + added, std::memory_order_relaxed);
    const uint32_t summoned = m_summoned.load(std::memory_order_relaxed);
    const uint32_t newlySummoned = std::min(added, m_parked - summoned);
    m_summoned.store(summoned + newlySummoned, std::memory_order_relaxed);
    return added - newlySummoned;
}

void TaskQueue::requestRunners(uint32_t count, bool wakesAtOnce) {
    if (m_mainPool) {
        m_mainPool->pushMainQueue(this);
    } else if (m_dispatcher) {
        m_dispatcher->push(count, this, isHighPriQueue(), wakesAtOnce);
        // Somebody may sleep who would have served the request, had it been there.
        if (m_helpers.load() != 0) {
            const Lock lock(m_mutex);
            m_idleCondition.notifyAll();
        }
    } else {
        logging::MessageStream(3, 2) << "[TASKS] there is no pool to run a task";
        discharge(count);
    }
}

void TaskQueue::pushBarrier() {
    const Lock lock(m_mutex);
    const bool isPaused = !m_pendingSegments.empty();
    if (empty() ? isPaused && !m_pendingSegments.back().entries.empty() : true) m_pendingSegments.emplace_back();
}

// ---- Running.

TaskQueue::Runner* TaskQueue::findRunner(const TaskQueue* queue) {
    Runner* runner = Runner::top;
    while (runner && runner->queue != queue) runner = runner->outer;
    return runner;
}

inline void TaskQueue::execute(const Run& run, Runner& runner) {
    if (runner.finished && runner.finished != run.task) {
        runner.hasAborted = false;
        runner.release();
        // Destructors have been known to end everything.
        if (runner.isQueueGone || runner.hasAborted) return drop(run, runner);
    }
    TaskContext context(this, run.index, run.weight);
    if (!isAborting()) {
        try {
            run.task->run(context);
        } catch (const std::exception& failure) {
            logFailure(failure.what());
        } catch (...) {
            logFailure("unknown exception");
        }
    }
    if (!runner.isQueueGone) finishWeight(context.getWorkload());
    runner.finished = run.task;
    ++runner.finishedRuns;
    if (run.index == 0) runner.release(); // this may destroy the queue as well
}

void TaskQueue::processTasks() {
    const TraceSpan span("queue", nameOf(*this));
    Runner runner(this);
    const bool isParallel = isParallelQueue();
    do {
        for (Run run; isParallel ? m_block.claim(run) : m_block.claimAlone(run);) {
            execute(run, runner);
            if (runner.isQueueGone) break;
        }
        runner.release();
        if (runner.isQueueGone) return;
        runner.breathe();
    } while (findRuns(runner));
}

// False when there are none, and this runner has left: the queue may be gone.
bool TaskQueue::findRuns(Runner& runner) {
    Lock lock(m_mutex);
    for (;;) {
        if (!m_block.empty() || refill() || promote(lock)) return true;
        if (takeBackRequests(lock)) continue;
        runnersEnded(1);
        if (!park(lock, runner)) return false;
        runner.turns = 0;
    }
}

// Moves runs from the current segment to the block. Under the mutex, and only when the block is empty.
bool TaskQueue::refill() {
    uint32_t size = 0;
    while (size < m_block.capacity && !m_currentSegment.empty()) {
        Entry& entry = m_currentSegment.front();
        KIV_PREFETCH_TO_WRITE(entry.task); // another processor has it
        const uint32_t taken = std::min(entry.count, m_block.capacity - size);
        for (uint32_t i = 0; i < taken; ++i) m_block.set(size++, {entry.task, --entry.count, entry.weight});
        if (entry.count == 0) m_currentSegment.pop_front();
    }
    if (size != 0) m_block.publish(size);
    return size != 0;
}

// Threads that are asked for but have not come are of no use to a queue that has run dry: whoever waits for the queue
// would wait for them. True when this runner has to look again: much may have happened while the mutex was released.
bool TaskQueue::takeBackRequests(Lock& lock) {
    if (!m_dispatcher || m_activeRunners.load(std::memory_order_relaxed) < 2 || !m_dispatcher->hasRequests())
        return false;
    lock.unlock();
    const uint32_t cancelled = m_dispatcher->cancel(this);
    lock.lock();
    runnersEnded(cancelled);
    if (m_currentSegment.empty() && m_block.empty())
        return cancelled != 0 || m_activeRunners.load(std::memory_order_relaxed) == 1;
    if (const uint32_t requested = addRunners(cancelled)) {
        lock.unlock();
        requestRunners(requested);
        lock.lock();
    }
    return true;
}

// A runner that has left looks for a moment whether it is summoned again: that is cheaper than to wake a thread. When
// it is not, the queue may be gone. True, and under the mutex again, when it was summoned.
bool TaskQueue::park(Lock& lock, const Runner& runner) {
    internal::Dispatcher* const dispatcher = m_dispatcher.get();
    if (runner.outer || m_isDying || !dispatcher || !dispatcher->park()) return false;
    ++m_parked;
    lock.unlock();
    for (int i = 0; i < parkSpins; ++i) {
        if (m_summoned.load(std::memory_order_relaxed) != 0 || isAborting() || dispatcher->hasRequests()) break;
        KIV_PAUSE();
    }
    lock.lock();
    --m_parked;
    const uint32_t summoned = m_summoned.load(std::memory_order_relaxed);
    if (summoned != 0)
        m_summoned.store(summoned - 1, std::memory_order_relaxed);
    else if (m_isDying)
        m_idleCondition.notifyAll();
    lock.unlock();
    dispatcher->unpark(summoned != 0);
    if (summoned == 0) return false;
    lock.lock();
    return true;
}

void TaskQueue::drop(const Run& run, const Runner& runner) {
    if (!runner.isQueueGone) finishWeight(run.weight);
    run.task->decreaseReferenceCount();
}

// The last runner of a segment goes on with the next one, and asks for help with it.
bool TaskQueue::promote(Lock& lock) {
    if (m_activeRunners.load(std::memory_order_relaxed) != 1 || m_pendingSegments.empty()) return false;
    m_currentSegment.swap(m_pendingSegments.front().entries);
    const uint64_t runs = m_pendingSegments.front().runs;
    m_pendingSegments.pop_front();
    if (!isParallelQueue() || runs < 2) return true;
    const uint32_t added = addRunners(static_cast<uint32_t>(std::min<uint64_t>(runs - 1, noLimit)));
    if (added != 0) {
        lock.unlock();
        requestRunners(added);
        lock.lock();
    }
    return true;
}

// Under the mutex: whoever gets it next may destroy the queue.
void TaskQueue::runnersEnded(uint32_t runners) {
    const uint32_t left = m_activeRunners.load(std::memory_order_relaxed) - runners;
    if (left == 0) m_idleEpoch.fetch_add(1, std::memory_order_release);
    m_activeRunners.store(left, std::memory_order_release);
    if (m_type != Main && (left == 0 ? m_sleepers != 0 : m_partialSleepers != 0)) m_idleCondition.notifyAll();
}

void TaskQueue::discharge(uint32_t runners) {
    if (m_isAwaited) {
        while (runners-- != 0) processTasks();
        return;
    }
    const Lock lock(m_mutex);
    runnersEnded(runners);
}

// Serves a parallel queue as one runner more.
void TaskQueue::joinIn() {
    {
        const Lock lock(m_mutex);
        if (m_currentSegment.empty() && m_block.empty()) return;
        m_activeRunners.store(m_activeRunners.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
    processTasks();
}

// ---- Waiting.

// A thread of the pool that sleeps could be the one that the queue waits for: it serves the queue first.
template <class IsOver>
void TaskQueue::sleepUntil(Lock& lock, IsOver isOver) {
    if (isOver()) return;
    const bool canHelp = m_dispatcher && m_dispatcher->isWorker();
    ++m_sleepers;
    if (canHelp) ++m_helpers;
    while (!isOver() && !m_isDestroyed) {
        const uint32_t prepared = m_idleCondition.prepare();
        lock.unlock();
        if (canHelp && m_dispatcher->claim(this))
            processTasks();
        else
            m_idleCondition.sleep(prepared);
        lock.lock();
    }
    if (canHelp) --m_helpers;
    if (--m_sleepers == 0 && m_isDying) m_idleCondition.notifyAll();
}

bool TaskQueue::isRefused(const char* operation) const {
    const char* why = nullptr;
    if (findRunner(this))
        why = " of a task queue from one of its own tasks";
    else if (isMainQueue() && m_mainPool && m_mainPool->isMainThread())
        why = " of the main queue on the main thread";
    if (why) logging::MessageStream(4, 2) << "[TASKS] " << operation << why;
    return why != nullptr;
}

void TaskQueue::wait() {
    const uint32_t epoch = m_idleEpoch.load(std::memory_order_acquire);
    if (empty() || isRefused("wait")) return;
    const auto isOver = [&] { return empty() || m_idleEpoch.load(std::memory_order_acquire) != epoch; };
    m_waiters.fetch_add(1, std::memory_order_relaxed);
    for (int i = 0; i < waitSpins && !isOver(); ++i) KIV_PAUSE();
    // The runner may need this processor.
    for (int i = 0; i < waitYields && !isOver(); ++i) std::this_thread::yield();
    Lock lock(m_mutex);
    sleepUntil(lock, isOver);
    m_waiters.fetch_sub(1, std::memory_order_relaxed);
}

void TaskQueue::pause() {
    if (isMainQueue()) {
        logging::MessageStream(4, 2) << "[TASKS] pause of a main queue";
        return;
    }
    if (isRefused("pause")) return;
    Lock lock(m_mutex);
    sleepUntil(lock, [&] { return empty(); });
    if (m_pendingSegments.empty()) m_pendingSegments.emplace_back();
}

void TaskQueue::resume() {
    if (isMainQueue()) {
        logging::MessageStream(4, 2) << "[TASKS] resume of a main queue";
        return;
    }
    uint32_t requested;
    {
        const Lock lock(m_mutex);
        if (m_pendingSegments.empty() || !empty()) return;
        requested = addRunners(1); // who makes the segment the current one, and asks for the others
    }
    if (requested != 0) requestRunners(requested);
}

// ---- Dropping.

void TaskQueue::abort() {
    // A task that is dropped, or runs at the same time, may give up the last reference to its queue.
    const SmartPointer<TaskQueue> self(getReferenceCount() > 0 ? this : nullptr);
    stop(false);
}

void TaskQueue::disable() {
    const SmartPointer<TaskQueue> self(getReferenceCount() > 0 ? this : nullptr);
    stop(true);
}

void TaskQueue::stop(bool forGood) {
    unsigned ownRuns = 0;
    for (Runner* runner = Runner::top; runner; runner = runner->outer) {
        if (runner->queue != this) continue;
        runner->hasAborted = true;
        ++ownRuns;
    }
    Lock lock(m_mutex);
    if (forGood) m_isDying = true;
    // From the destructor of a task that is dropped, or while another thread waits for this run to return.
    if (m_aborter == std::this_thread::get_id() || (m_aborter && ownRuns != 0)) return;
    sleepUntil(lock, [this] { return !m_aborter; });
    m_aborter = std::this_thread::get_id();
    m_aborting = true;
    // What the one runner of a serial queue has at hand it drops itself.
    if (ownRuns != 0 || isParallelQueue()) {
        for (Run run; m_block.claim(run);) dropEntry(lock, {run.task, 1, run.weight});
    }
    // The runs that abort() is called from go on, and what is pushed later stays behind a barrier that was behind them.
    const bool hasBarrier = dropAll(lock) && ownRuns != 0 && isParallelQueue();
    lock.unlock();
    assert(!m_mainPool || m_mainPool->isMainThread());
    const uint32_t requests = m_mainPool     ? m_mainPool->removeMainQueue(this)
                              : m_dispatcher ? m_dispatcher->cancel(this)
                                             : 0;
    lock.lock();
    if (requests != 0) {
        runnersEnded(requests);
        // A barrier that was pushed meanwhile would be a pause: no runner is left to go over it.
        if (empty()) m_pendingSegments.clear();
    }
    if (!isMainQueue()) {
        if (ownRuns != 0) ++m_partialSleepers;
        sleepUntil(lock, [&] { return m_activeRunners.load(std::memory_order_relaxed) <= ownRuns; });
        if (ownRuns != 0) --m_partialSleepers;
    }
    if (!m_isDying) {
        if (hasBarrier && m_pendingSegments.empty()) m_pendingSegments.emplace_back();
        m_aborting = false;
    }
    m_aborter.reset();
    if (m_sleepers != 0) m_idleCondition.notifyAll();
}

// True when there was a barrier, maybe pushed while tasks before it were dropped.
bool TaskQueue::dropAll(Lock& lock) {
    dropEntries(lock, m_currentSegment);
    std::deque<Segment> pending;
    pending.swap(m_pendingSegments);
    for (Segment& segment : pending) dropEntries(lock, segment.entries);
    return !pending.empty();
}

void TaskQueue::dropEntries(Lock& lock, internal::Fifo<Entry>& entries) {
    while (!entries.empty()) {
        const Entry entry = entries.front();
        entries.pop_front();
        dropEntry(lock, entry);
    }
}

// Tasks are released without the lock: their destructors may use the queue.
void TaskQueue::dropEntry(Lock& lock, const Entry& entry) {
    keepWeight(0 - entry.count * entry.weight);
    lock.unlock();
    entry.task->decreaseReferenceCountBy(entry.count);
    lock.lock();
}

unsigned TaskQueue::getNumberOfQueuedTasks() {
    const Lock lock(m_mutex);
    return static_cast<unsigned>(m_currentSegment.size()) + m_block.countLastRuns();
}

} // namespace kiv
