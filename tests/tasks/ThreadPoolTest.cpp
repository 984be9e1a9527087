// Hunts: requests that nobody serves, threads that are started without need or never end, pools that end with work in
// their queues, threads of the pool that all wait for what only they could do.
#include "kiv/tasks/ThreadPool.h"
#include "TaskHelpers.h"
#include "kiv/core/Clock.h"
#include "kiv/tasks/HardwareConcurrency.h"

#include <gtest/gtest.h>
#include <list>
#include <thread>
#include <vector>

namespace kiv {
namespace {

using support::Gate;
using support::waitUntil;
using Type = TaskQueue::Type;

class ThreadPoolTest : public testing::Test {
protected:
    // Waits for that many idle threads, and no others.
    void expectIdle(int threads) {
        waitUntil([&] { return m_pool->getIdleCount() == threads; });
        EXPECT_EQ(m_pool->getThreadCount(), threads);
    }

    support::Watchdog m_watchdog;
    ManualClock m_clock; // before the pool
    SmartPointer<ThreadPool> m_pool = makeObject<ThreadPool>();
    const int m_limit = m_pool->getMaxThreads();
};

// Tasks on queues of their own, one for each thread the pool may have, that are all in progress at once.
class Crowd {
public:
    template <class Function>
    Crowd(int size, Function function) {
        for (int i = 0; i < size; ++i) {
            m_queues.emplace_back(Type::Serial);
            m_queues.back().pushTask(makeTask([=, this] {
                m_here.open();
                m_here.pass(static_cast<unsigned>(size));
                function(i);
            }));
        }
    }
    ~Crowd() {
        for (TaskQueue& queue : m_queues) queue.wait();
    }

private:
    Gate m_here;
    std::list<TaskQueue> m_queues;
};

TEST_F(ThreadPoolTest, StartsAThreadOnlyWhereNoneIsIdle) {
    EXPECT_TRUE(ThreadPool::current() == m_pool.get() && m_pool->getThreadCount() == 0);
    EXPECT_EQ(m_limit, static_cast<int>(getHardwareConcurrency()) + 1);
    TaskQueue queue(Type::Serial), parallel(Type::GlobalParallel);
    for (int i = 0; i < 100; ++i) {
        queue.pushTask(makeTask([] {}));
        queue.wait();
        expectIdle(1);
    }
    m_pool->startWorker();
    expectIdle(2);
    std::list<Blocker> both;
    both.emplace_back(parallel), both.emplace_back(parallel);
    EXPECT_TRUE(m_pool->getThreadCount() == 2 && m_pool->getIdleCount() == 0);
}

TEST_F(ThreadPoolTest, ServesTwoRequestsThoughOneThreadIsIdle) {
    for (int round = 0; round < 300; ++round) {
        m_pool = nullptr;
        m_pool = makeObject<ThreadPool>();
        m_pool->startWorker();
        expectIdle(1);
        TaskQueue first(Type::Serial), second(Type::Serial);
        Gate gate;
        first.pushTask(makeTask([&] { gate.pass(); }));
        second.pushTask(makeTask([&] { gate.open(); }));
        first.wait(), second.wait();
    }
}

TEST_F(ThreadPoolTest, KeepsRequestsBeyondTheLimitForLater) {
    std::list<TaskQueue> queues;
    std::list<Blocker> blockers;
    for (int i = 0; i < m_limit; ++i) blockers.emplace_back(queues.emplace_back(Type::Serial));
    std::string order;
    std::mutex mutex;
    auto append = [&](char what) {
        return makeTask([&, what] {
            const std::lock_guard lock(mutex);
            order += what;
        });
    };
    TaskQueue normal(Type::Serial), high(Type::Serial | Type::HighPriority), other(Type::Serial);
    normal.pushTask(append('n')), other.pushTask(append('o')), high.pushTask(append('h'));
    EXPECT_TRUE(m_pool->getThreadCount() == m_limit && m_pool->getIdleCount() == 0 && !normal.empty() && order.empty());
    blockers.front().release(); // one thread serves all three
    normal.wait(), other.wait(), high.wait();
    EXPECT_EQ(order, "hno");
}

TEST_F(ThreadPoolTest, HasAThreadMoreForEachBusyIOQueue) {
    std::list<TaskQueue> queues;
    std::list<Blocker> blockers;
    const int crowd = 2 * m_limit;
    for (int i = 0; i < crowd; ++i) {
        blockers.emplace_back(queues.emplace_back(i % 2 ? Type::GlobalDeleteIO : Type::Serial | Type::IO));
        EXPECT_EQ(m_pool->getMaxThreads(), m_limit + i + 1);
    }
    // The processors are still free for others.
    for (int i = 0; i < m_limit; ++i) blockers.emplace_back(queues.emplace_back(Type::Serial));
    EXPECT_TRUE(m_pool->getMaxThreads() == m_limit + crowd && m_pool->getThreadCount() <= m_limit + crowd);
    blockers.clear();
    for (TaskQueue& queue : queues) queue.wait();
    waitUntil([&] { return m_pool->getMaxThreads() == m_limit; });
}

TEST_F(ThreadPoolTest, HasAThreadMoreForAnIOQueueAlsoWhereAnIdleOneIsSpokenFor) {
    for (int round = 0; round < 300; ++round) {
        m_pool = nullptr;
        m_pool = makeObject<ThreadPool>();
        for (int i = 0; i < m_limit; ++i) m_pool->startWorker();
        expectIdle(m_limit);
        // The last task ends the others, one of which leaves its processor to it.
        std::list<TaskQueue> queues;
        Gate gate;
        queues.emplace_back(Type::Serial | Type::IO).pushTask(makeTask([&] { gate.pass(); }));
        for (int i = 1; i < m_limit; ++i) queues.emplace_back(Type::Serial).pushTask(makeTask([&] { gate.pass(); }));
        queues.emplace_back(Type::Serial).pushTask(makeTask([&] { gate.open(); }));
        for (TaskQueue& queue : queues) queue.wait();
    }
}

TEST_F(ThreadPoolTest, RetiresThreadsThatWereIdleForLong) {
    for (int i = 0; i < m_limit + 4; ++i) m_pool->startWorker();
    expectIdle(m_limit + 4);
    m_clock.advance(30000); // not long enough
    m_pool->processEvents();
    expectIdle(m_limit + 4);
    m_clock.advance(3000);
    m_pool->processEvents();
    expectIdle(m_limit);
    m_clock.advance(100000);
    m_pool->processEvents();
    TaskQueue queue(Type::GlobalParallel);
    {
        std::list<Blocker> blockers;
        for (int i = 0; i < m_limit; ++i) blockers.emplace_back(queue);
        EXPECT_EQ(m_pool->getThreadCount(), m_limit);
    }
    queue.wait();
}

TEST_F(ThreadPoolTest, DischargesQueuesThatOutliveIt) {
    const Shares shares;
    {
        std::list<TaskQueue> queues;
        std::list<Blocker> blockers;
        for (int i = 0; i < m_limit; ++i) blockers.emplace_back(queues.emplace_back(Type::Serial));
        TaskQueue unserved(Type::Serial), paused(Type::Serial), parallel(Type::GlobalParallel);
        unserved.pushTask(shares.task());
        parallel.pushTaskN(100, shares.task().get());
        paused.pause();
        paused.pushTask(shares.task());
        std::jthread waiter([&] { unserved.wait(); });
        waitUntil([&] { return TaskQueuePeek::sleepers(unserved) == 1; });
        std::jthread destroyer([&] { m_pool = nullptr; });
        unserved.wait(), parallel.wait();
        unserved.pushTask(shares.task());
        paused.resume();
        parallel.pushTask(shares.task());
        unserved.wait(), paused.wait(), parallel.wait();
        blockers.clear();
        destroyer.join();
        EXPECT_EQ(ThreadPool::current(), nullptr);
        parallel.abort();
        unserved.pushTask(shares.task());
        EXPECT_TRUE(unserved.empty() && shares.inUse() == 4);
    }
    EXPECT_EQ(shares.inUse(), 0);
}

TEST_F(ThreadPoolTest, HelpsQueuesThatAllItsThreadsWaitFor) {
    std::atomic<int> runs{0};
    const auto count = makeTask([&] { ++runs; });
    {
        Crowd crowd(m_limit, [&](int) {
            TaskQueue own(Type::Serial), many(Type::GlobalParallel | Type::HighPriority), io(Type::Serial | Type::IO);
            for (TaskQueue* queue : {&own, &many, &io}) queue->pushTaskN(3, count.get());
            own.wait(), many.wait(), io.wait();
            own.pushTaskN(3, count.get());
            own.pause();
        });
    }
    EXPECT_EQ(runs, 12 * m_limit);
    Crowd crowd(m_limit, [&](int) {
        TaskQueue own(Type::Serial), many(Type::GlobalParallel); // destroyed with their requests unserved
        own.pushTaskN(3, count.get()), many.pushTaskN(3, count.get());
    });
}

TEST_F(ThreadPoolTest, HelpsAQueueThatAsksWhileItsThreadsWait) {
    TaskQueue queue(Type::GlobalParallel);
    Gate ran, isPushed;
    Crowd crowd(m_limit, [&](int i) {
        if (i != 0) {
            isPushed.pass();
            return queue.wait();
        }
        // Waits for a run that the others, who wait already, have to do.
        TaskQueue outer(Type::GlobalParallel);
        queue.pushTask(makeTask([&] {
            isPushed.open();
            waitUntil([&] { return TaskQueuePeek::sleepers(queue) == static_cast<uint32_t>(m_limit - 1) + 1; });
            queue.pushTask(makeTask([&] { ran.open(); }));
            ran.pass();
        }));
        queue.wait();
    });
}

TEST_F(ThreadPoolTest, RunsWhatIsInProgressToItsEnd) {
    std::atomic<bool> isOver{false};
    TaskQueue queue(Type::Serial);
    Gate entered;
    queue.pushTask(makeTask([&] {
        entered.open();
        waitUntil([] { return ThreadPool::current() == nullptr; });
        isOver = true;
    }));
    entered.pass();
    m_pool = nullptr;
    EXPECT_TRUE(isOver && queue.empty());
}

} // namespace
} // namespace kiv
