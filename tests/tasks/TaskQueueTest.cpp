// Hunts: barriers that get lost, runs dropped without their references or weights, pushes that slip into a dying queue,
// threads that wait for themselves or for what has already happened, pushes that cost more than they should.
#include "TaskHelpers.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/support/LogLines.h"
#include "tests/support/SystemCallCounter.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace kiv {
namespace {

using support::Gate;
using support::waitUntil;
using Type = TaskQueue::Type;

constexpr Type parallel = Type::GlobalParallel;

class TaskQueueTest : public testing::Test {
protected:
    support::Watchdog m_watchdog;
    ThreadPool m_pool;
};

// What runs of tasks named by letters did, as a text: "a" where one began, "A" where one ended.
class Journal {
public:
    SmartPointer<TaskQueue::Task> task(char name) {
        return makeTask([this, name, share = m_shares.get()] {
            write(static_cast<char>(name - 'A' + 'a'));
            std::this_thread::yield();
            write(name);
        });
    }
    long tasksLeft() const { return m_shares.inUse(); }
    // Whether the runs were those of `groups`, as in "AAB|C", and none began before those of the groups before ended.
    bool isOf(std::string groups) const {
        std::string expected;
        size_t at = 0;
        for (size_t end = 0; end != std::string::npos; groups.erase(0, end + 1)) {
            end = groups.find('|');
            const std::string names = groups.substr(0, end);
            expected = names;
            for (const char name : names) expected += static_cast<char>(name - 'A' + 'a');
            std::string part = m_text.substr(std::min(at, m_text.size()), expected.size());
            at += expected.size();
            std::sort(expected.begin(), expected.end());
            std::sort(part.begin(), part.end());
            if (part != expected) return false;
            if (end == std::string::npos) break;
        }
        return at == m_text.size();
    }
    const std::string& text() const { return m_text; }

private:
    void write(char what) {
        const std::lock_guard lock(m_mutex);
        m_text += what;
    }
    std::mutex m_mutex;
    std::string m_text;
    Shares m_shares;
};

// Plays a script: a letter pushes a task twice, | is a barrier, ( and ) pause and resume, ~ aborts, [ and ] keep the
// queue busy; then waits.
void play(const char* script, Type type, Journal& journal) {
    TaskQueue queue(type);
    std::unique_ptr<Blocker> blocker;
    for (const char* at = script; *at; ++at) {
        switch (*at) {
        case '|':
            queue.pushBarrier();
            break;
        case '(':
            queue.pause();
            break;
        case ')':
            queue.resume();
            break;
        case '~':
            queue.abort();
            break;
        case '[':
            blocker = std::make_unique<Blocker>(queue);
            break;
        case ']':
            blocker.reset();
            break;
        default:
            queue.pushTaskN(2, journal.task(*at).get(), 3);
        }
    }
    queue.wait();
    EXPECT_TRUE(isClean(queue)) << script;
}

TEST_F(TaskQueueTest, KeepsGroupsApartByBarriersAndPauses) {
    auto runs = [](const char* script, const char* groups) {
        for (const Type type : {Type::Serial, parallel, parallel | Type::HighPriority}) {
            Journal journal;
            play(script, type, journal);
            EXPECT_TRUE(journal.isOf(groups) && journal.tasksLeft() == 0)
                << script << " on " << type << " ran " << journal.text();
        }
    };
    runs("", ""), runs("ABC", "AABBCC"), runs("|A", "AA");
    runs("[AB|C]", "AABB|CC"), runs("[A||B]", "AA|BB"), runs("[A|]", "AA"), runs("[|A|B|]", "AA|BB"),
        runs("[]|A", "AA");
    // Paused queues: nothing runs, but barriers hold.
    runs("(AB)", "AABB"), runs("(A|B)", "AA|BB"), runs("(|A||B|)", "AA|BB"), runs("(A)", "AA"), runs("((A)", "AA");
    runs("()A", "AA"), runs(")A", "AA"), runs("(ABC~)", ""), runs("(A|B|~C", "CC"), runs("(A~(B)", "BB");
}

TEST_F(TaskQueueTest, RunsSerialTasksInTheirOrder) {
    Journal journal;
    play("[ABC|D](E|F)", Type::Serial, journal);
    EXPECT_EQ(journal.text(), "aAaAbBbBcCcCdDdDeEeEfFfF");
}

TEST_F(TaskQueueTest, TellsRunsTheirIndexWeightAndQueue) {
    TaskQueue queue(Type::Serial | Type::HighPriority, -7);
    std::string log;
    Blocker blocker(queue, 1000);
    const auto task = makeTask([&](TaskContext& context) {
        EXPECT_TRUE(context.getQueue() == &queue && context.getQueueID() == -7 && !context.isAborting());
        log += std::to_string(context.getIndex()) + ":" + std::to_string(queue.getWorkload()) + " ";
        context.changeWorkload(context.getIndex());
        log += std::to_string(queue.getWorkload()) + " ";
    });
    queue.pushTaskN(3, task.get(), 10);
    queue.pushTaskN(0, nullptr);
    EXPECT_TRUE(queue.getNumberOfQueuedTasks() == 1 && queue.getWorkload() == 1030 && task->getReferenceCount() == 4);
    blocker.release();
    queue.wait();
    EXPECT_EQ(log, "2:30 22 1:20 11 0:10 0 ");
    EXPECT_TRUE(isClean(queue) && task->getReferenceCount() == 1);

    auto is = [](Type type, const char* bits) {
        const TaskQueue typed(type);
        std::string found;
        if (typed.isMainQueue()) found += 'm';
        if (typed.isIOQueue()) found += 'i';
        if (typed.isParallelQueue()) found += 'p';
        if (typed.isHighPriQueue()) found += 'h';
        EXPECT_EQ(found, bits);
        EXPECT_TRUE(typed.getType() == type && typed.getQueueID() == 0);
    };
    is(Type::Main, "m"), is(Type::Serial, ""), is(Type::GlobalParallel, "p"), is(Type::GlobalDeleteIO, "ih");
}

TEST_F(TaskQueueTest, CountsAPushOfManyRunsAsOne) {
    const Shares shares;
    TaskQueue queue(parallel);
    {
        // Were it half a billion entries, references or requests, this would not end.
        std::vector<std::unique_ptr<Blocker>> blockers;
        for (int i = m_pool.getMaxThreads(); i > 0; --i) blockers.push_back(std::make_unique<Blocker>(queue));
        const auto task = shares.task();
        queue.pushTaskN(0x1FFFFFF0, task.get(), 0);
        EXPECT_TRUE(queue.getNumberOfQueuedTasks() == 1 && task->getReferenceCount() == 0x1FFFFFF1);
        EXPECT_LE(TaskQueuePeek::runners(queue), static_cast<uint32_t>(m_pool.getMaxThreads()));
        std::jthread aborter([&] { queue.abort(); });
        // What is dropped leaves the queue first and is released after that.
        waitUntil([&] { return queue.isAborting() && task->getReferenceCount() == 1; });
        EXPECT_EQ(queue.getNumberOfQueuedTasks(), 0);
        blockers.clear();
    }
    EXPECT_TRUE(isClean(queue) && shares.inUse() == 0);
}

TEST_F(TaskQueueTest, PushesToABusySerialQueueWithoutTheSystem) {
    if (!support::countsSystemCalls()) GTEST_SKIP() << "system calls can't be counted here";
    TaskQueue queue(Type::Serial);
    const auto task = makeTask([] {});
    const size_t toWake = support::systemCallsOf([&] { queue.pushTask(task); });
    queue.wait();
    Blocker blocker(queue);
    EXPECT_EQ(support::systemCallsOf([&] {
                  for (int i = 0; i < 1000; ++i) queue.pushTask(task);
                  queue.pushBarrier();
                  for (int i = 0; i < 1000; ++i) queue.pushTask(task);
              }),
              0u);
    EXPECT_LE(toWake, 1u);
    blocker.release();
    queue.wait();
    EXPECT_EQ(support::systemCallsOf([&] { queue.wait(); }), 0u);
}

TEST_F(TaskQueueTest, DropsRunsWithTheirReferencesAndWeights) {
    for (const Type type : {Type::Serial, parallel}) {
        const Shares shares;
        const auto held = shares.task();
        TaskQueue queue(type);
        std::vector<std::unique_ptr<Blocker>> blockers;
        const int runners = type == parallel ? m_pool.getMaxThreads() : 1;
        for (int i = 0; i < runners; ++i) blockers.push_back(std::make_unique<Blocker>(queue, 5));
        queue.pushTask(held, 100);
        queue.pushTaskN(7, shares.task().get(), 1000);
        queue.pushBarrier();
        queue.pushTaskN(8, shares.task().get(), 0x80000000); // wraps
        queue.pushTask(shares.task(), 77);
        EXPECT_EQ(shares.inUse(), 4);

        std::jthread aborter([&] { queue.abort(); });
        waitUntil([&] { return shares.inUse() == 1; });
        EXPECT_EQ(queue.getWorkload(), static_cast<unsigned>(5 * runners));
        // Now it takes nothing: what nobody else holds is destroyed.
        queue.pushTaskN(3, shares.task().get());
        queue.pushTask(held);
        EXPECT_TRUE(queue.isAborting() && shares.inUse() == 1 && held->getReferenceCount() == 1);
        blockers.clear();
        aborter.join();

        EXPECT_TRUE(isClean(queue) && !queue.isAborting());
        Gate ran;
        queue.pushTask(makeTask([&] { ran.open(); }));
        ran.pass();
    }
}

TEST_F(TaskQueueTest, AbortsTwiceAtOnce) {
    TaskQueue queue(Type::Serial);
    Blocker blocker(queue);
    std::atomic<bool> isReleased{false};
    auto abort = [&] {
        queue.abort();
        EXPECT_TRUE(isReleased);
    };
    std::jthread first(abort), second(abort);
    waitUntil([&] { return TaskQueuePeek::sleepers(queue) == 2; });
    isReleased = true;
    blocker.release();
    first.join(), second.join();
    Gate ran;
    queue.pushTask(makeTask([&] { ran.open(); }));
    ran.pass();
}

// A run aborts its queue, to which a task that is dropped has the last reference.
TEST_F(TaskQueueTest, IsDestroyedBehindAnAbortThatDropsItsLastReference) {
    struct Watched : TaskQueue {
        Watched(Type type, std::atomic<bool>& gone) : TaskQueue(type), isGone(gone) {}
        ~Watched() override { isGone = true; }
        std::atomic<bool>& isGone;
    };
    for (const auto type : {Type::Serial, parallel}) {
        std::atomic<bool> isGone{false};
        const auto gate = std::make_shared<Gate>(); // a run may look at it when the queue's end has begun
        SmartPointer<TaskQueue> queue = makeObject<Watched>(type, isGone);
        queue->pushTask(makeTask([gate](TaskContext& context) {
            gate->pass();
            context.getQueue()->abort();
        }));
        // More than there are runners for: the last one is still queued.
        for (int i = 0; i < 8; ++i) queue->pushTask(makeTask([gate, queue] { gate->pass(); }));
        queue = nullptr;
        gate->open();
        waitUntil([&] { return isGone.load(); });
    }
}

TEST_F(TaskQueueTest, AbortsAgainFromTasksThatItDrops) {
    TaskQueue queue(Type::Serial);
    Blocker blocker(queue);
    struct Owner { // dies with the task
        explicit Owner(TaskQueue& own) : queue(own) {}
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;
        ~Owner() {
            queue.abort();
            queue.pushBarrier();
        }
        TaskQueue& queue;
    };
    queue.pushBarrier();
    queue.pushTask(makeTask([owner = std::make_unique<Owner>(queue)] {}));
    std::jthread opener([&] {
        waitUntil([&] { return TaskQueuePeek::sleepers(queue) == 1; });
        blocker.release();
    });
    queue.abort();
    EXPECT_TRUE(isClean(queue) && !queue.isAborting());

    // Also where no runner is left to go over the barrier.
    TaskQueue other(Type::Serial), busy(parallel);
    std::vector<std::unique_ptr<Blocker>> all;
    for (int i = m_pool.getMaxThreads(); i > 0; --i) all.push_back(std::make_unique<Blocker>(busy));
    other.pushTask(makeTask([] {}));
    other.pushBarrier();
    other.pushTask(makeTask([owner = std::make_unique<Owner>(other)] {}));
    other.abort();
    EXPECT_TRUE(isClean(other));
}

TEST_F(TaskQueueTest, RunsWhatIsBehindABarrierWhileOthersWantItsThreads) {
    const auto threads = static_cast<unsigned>(m_pool.getMaxThreads());
    const auto nothing = makeTask([] {});
    for (unsigned round = 0; round < 1500 && !HasFailure(); ++round) {
        TaskQueue queue(parallel), others[] = {TaskQueue(Type::Serial), TaskQueue(Type::Serial),
                                               TaskQueue(Type::Serial), TaskQueue(Type::Serial)};
        std::atomic<unsigned> inside{0};
        std::atomic<bool> isOpen{false}, ran{false};
        queue.pushTaskN(threads, makeTask([&] {
                                     ++inside;
                                     while (!isOpen) std::this_thread::yield();
                                 }).get());
        queue.pushBarrier();
        queue.pushTask(makeTask([&] { ran = true; }));
        waitUntil([&] { return inside == threads; });
        for (TaskQueue& other : others) other.pushTask(nothing);
        isOpen = true;
        while (!queue.empty()) m_pool.getIdleCount(); // keeps the runners from leaving quickly
        EXPECT_TRUE(ran) << "round " << round;
    }
}

TEST_F(TaskQueueTest, HasAWorkloadThatIsNeverNegative) {
    TaskQueue queue(Type::Serial);
    std::jthread looker([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            const unsigned workload = queue.getWorkload();
            if (workload > 0x7FFFFFFF) {
                ADD_FAILURE() << workload;
                return;
            }
        }
    });
    const auto task = makeTask([] {});
    for (int i = 0; i < 100000; ++i) queue.pushTask(task);
    queue.wait();
}

TEST_F(TaskQueueTest, DoesNotWaitForItself) {
    for (const Type type : {Type::Serial, parallel}) {
        support::LogLines lines;
        TaskQueue queue(type);
        const Shares shares;
        Gate over;
        queue.pushTask(makeTask([&] {
            queue.pushTask(makeTask([] {}));
            queue.wait();
            queue.pause();
            over.open();
        }));
        over.pass();
        queue.wait();
        EXPECT_EQ(lines.takeOne(), "[ASSERT] [TASKS] wait of a task queue from one of its own tasks AND "
                                   "[ASSERT] [TASKS] pause of a task queue from one of its own tasks");
        queue.pushTask(makeTask([&] {
            queue.pushTaskN(5, shares.task().get(), 9);
            queue.pushBarrier();
            queue.pushTask(shares.task(), 9);
            queue.abort();
            EXPECT_EQ(TaskQueuePeek::pendingSegments(queue), type == parallel ? 1u : 0u); // the barrier is still there
            over.open();
        }));
        over.pass(2);
        queue.wait();
        EXPECT_TRUE(isClean(queue) && shares.inUse() == 0 && lines.take().empty());
    }
}

TEST_F(TaskQueueTest, KeepsABarrierThatComesWhileARunAborts) {
    struct Barrier { // behind the tasks before it, when it dies with one of them
        explicit Barrier(TaskQueue& own) : queue(own) {}
        Barrier(const Barrier&) = delete;
        Barrier& operator=(const Barrier&) = delete;
        ~Barrier() { queue.pushBarrier(); }
        TaskQueue& queue;
    };
    TaskQueue busy(parallel), queue(parallel);
    std::vector<std::unique_ptr<Blocker>> others; // lest the dropped task is run
    for (int i = m_pool.getMaxThreads(); i > 1; --i) others.push_back(std::make_unique<Blocker>(busy));
    Gate over;
    queue.pushTask(makeTask([&] {
        queue.pushTask(makeTask([barrier = std::make_unique<Barrier>(queue)] {}));
        queue.abort();
        EXPECT_EQ(TaskQueuePeek::pendingSegments(queue), 1u);
        over.open();
    }));
    over.pass();
    queue.wait();
    EXPECT_TRUE(isClean(queue));
}

TEST_F(TaskQueueTest, WaitsForOtherRunsWhenARunAborts) {
    TaskQueue queue(parallel);
    std::atomic<bool> isReleased{false};
    auto blocker = std::make_unique<Blocker>(queue);
    queue.pushTask(makeTask([&] {
        queue.abort();
        EXPECT_TRUE(isReleased);
    }));
    waitUntil([&] { return TaskQueuePeek::sleepers(queue) == 1; });
    isReleased = true;
    blocker.reset();
    queue.wait();
    EXPECT_TRUE(isClean(queue));
}

TEST_F(TaskQueueTest, IsDestroyedByItsOwnTask) {
    for (const Type type : {Type::Serial, parallel, Type::GlobalDeleteIO}) {
        const Shares shares;
        Gate pushed;
        auto queue = makeObject<TaskQueue>(type);
        TaskQueue& same = *queue;
        auto last = makeTask([&pushed, owner = queue, share = shares.get()]() mutable {
            pushed.pass();
            owner = nullptr;
        });
        same.pushTaskN(type == parallel ? 1 : 3, last.get());
        same.pushTaskN(10, shares.task().get());
        same.pushBarrier();
        same.pushTask(shares.task());
        last = nullptr;
        queue = nullptr;
        pushed.open();
        waitUntil([&] { return shares.inUse() == 0; });
    }
}

TEST_F(TaskQueueTest, IsDestroyedWhileOthersWait) {
    for (const bool byItsOwnTask : {false, true}) {
        auto queue = makeObject<TaskQueue>(Type::Serial);
        TaskQueue& same = *queue;
        Gate running, go;
        SmartPointer<TaskQueue> owner = byItsOwnTask ? queue : nullptr;
        same.pushTask(makeTask([&running, &go, owner]() mutable {
            running.open();
            go.pass();
            owner = nullptr;
        }));
        owner = nullptr;
        running.pass(); // else an abort would drop it, and wait for nothing
        std::jthread first([&] { same.wait(); }), second([&] { same.wait(); }), third([&] { same.pause(); });
        waitUntil([&] { return TaskQueuePeek::sleepers(same) == 3; });
        if (byItsOwnTask) {
            queue = nullptr;
            go.open();
        } else {
            std::jthread opener([&] {
                waitUntil([&] { return same.isAborting(); });
                go.open();
            });
            queue = nullptr;
        }
    }
}

// The abort keeps it until it returns.
TEST_F(TaskQueueTest, OutlivesAnAbortWhileAnotherRunReleasesIt) {
    Gate aborting, over;
    auto queue = makeObject<TaskQueue>(parallel);
    TaskQueue& same = *queue;
    auto releaser = makeTask([&, owner = queue]() mutable {
        aborting.pass();
        waitUntil([&] { return TaskQueuePeek::sleepers(same) == 1; });
        owner = nullptr;
    });
    same.pushTask(std::exchange(releaser, nullptr));
    same.pushTask(makeTask([&, owner = queue] {
        aborting.open();
        same.abort();
        EXPECT_EQ(TaskQueuePeek::runners(same), 1u);
        over.open();
    }));
    queue = nullptr;
    over.pass();
}

TEST_F(TaskQueueTest, HearsOfAnIdleMomentThatIsOver) {
    for (int round = 0; round < 20; ++round) {
        TaskQueue queue(Type::Serial);
        auto first = std::make_unique<Blocker>(queue);
        std::jthread waiter([&] { queue.wait(); });
        waitUntil([&] { return TaskQueuePeek::sleepers(queue) == 1; });
        first->release();
        while (!queue.empty()) {
        }
        Blocker second(queue); // before the waiter has looked, most probably
        waiter.join();
    }
}

TEST_F(TaskQueueTest, DropsWhatAPauseHeldBackWhenDestroyed) {
    const Shares shares;
    {
        TaskQueue queue(parallel);
        queue.pause();
        queue.pushTaskN(5, shares.task().get());
        queue.pushBarrier();
        queue.pushTask(shares.task());
        EXPECT_TRUE(queue.empty() && queue.getNumberOfQueuedTasks() == 0 && queue.getWorkload() == 6);
        queue.wait();
        EXPECT_EQ(shares.inUse(), 2);
    }
    EXPECT_EQ(shares.inUse(), 0);
}

TEST_F(TaskQueueTest, SurvivesTasksThatThrow) {
    support::LogLines lines;
    const Shares shares;
    TaskQueue queue(Type::Serial);
    Gate ran;
    queue.pushTaskN(2, makeTask([share = shares.get()] { throw std::runtime_error("no film"); }).get(), 4);
    queue.pushTask(makeTask([share = shares.get()] { throw 7; }));
    queue.pushTask(makeTask([&] { ran.open(); }));
    ran.pass();
    queue.wait();
    EXPECT_EQ(lines.takeOne(), "[TASKS] a task has failed: no film AND [TASKS] a task has failed: no film AND "
                               "[TASKS] a task has failed: unknown exception");
    EXPECT_TRUE(isClean(queue) && shares.inUse() == 0);
}

// Stopped for good by an owner, as those do that keep a loop on a queue of their own.
struct Stoppable : TaskQueue {
    using TaskQueue::disable;
    using TaskQueue::TaskQueue;
};

TEST_F(TaskQueueTest, TakesNothingOnceItIsDisabled) {
    const Shares shares;
    Stoppable queue(Type::Serial);
    queue.pushTask(makeTask([](TaskContext& context) { waitUntil([&] { return context.isAborting(); }); }));
    queue.disable();
    queue.disable();
    queue.pushTaskN(4, shares.task().get());
    EXPECT_TRUE(isClean(queue) && queue.isAborting() && shares.inUse() == 0);
}

TEST_F(TaskQueueTest, AlignsTasks) {
    struct alignas(64) Wide {
        char bytes[64];
    };
    std::vector<SmartPointer<TaskQueue::Task>> tasks;
    for (int i = 0; i < 8; ++i) {
        tasks.push_back(makeTask([wide = Wide()] { static_cast<void>(wide); }));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(tasks.back().get()) % 64, 0u);
    }
}

TEST(TaskQueueWithoutPool, RunsNothingAndSaysSo) {
    support::LogLines lines;
    const Shares shares;
    {
        TaskQueue queue(Type::Serial);
        queue.pushTask(shares.task());
        queue.wait();
        EXPECT_EQ(lines.takeOne(), "[TASKS] there is no pool to run a task");
    }
    EXPECT_EQ(shares.inUse(), 0);
    EXPECT_EQ(TaskQueue::SegmentInParts(0).parts, 0u);
    EXPECT_EQ(TaskQueue::SegmentInParts(1).parts, 1u);
    const TaskQueue::SegmentInParts many(1000000);
    EXPECT_TRUE(many.total == 1000000 && many.parts >= 2 && many.parts % 2 == 0);
}

} // namespace
} // namespace kiv
