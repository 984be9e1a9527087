// Hunts: main queues that are never run again after an abort or a nested pump, pumps that take on what was pushed to
// other queues meanwhile, calls that would hang the main thread.
#include "kiv/tasks/MainPool.h"
#include "TaskHelpers.h"
#include "tests/support/LogLines.h"

#include <gtest/gtest.h>
#include <thread>

namespace kiv {
namespace {

class MainPoolTest : public testing::Test {
protected:
    // Runs what was pushed and returns the letters of it.
    std::string pump() {
        m_ran.clear();
        m_pool->processEvents();
        return m_ran;
    }
    SmartPointer<TaskQueue::Task> task(char letter) {
        return makeTask([this, letter] { m_ran += letter; });
    }
    void push(TaskQueue& queue, const char* letters) {
        for (; *letters; ++letters) queue.pushTask(task(*letters), 5);
    }

    support::Watchdog m_watchdog;
    const SmartPointer<MainPool> m_pool = makeObject<MainPool>();
    std::string m_ran;
};

TEST_F(MainPoolTest, RunsQueuesInTheOrderOfTheirFirstPush) {
    TaskQueue a(TaskQueue::Main), b(TaskQueue::Main);
    EXPECT_TRUE(MainPool::current() == m_pool.get() && m_pool->isMainThread() && pump().empty());
    push(b, "1"), push(a, "2"), push(b, "3");
    b.pushBarrier();
    push(b, "4");
    EXPECT_EQ(pump(), "1342");
    EXPECT_TRUE(pump().empty() && isClean(a) && isClean(b));
    std::jthread([&] { push(a, "x"); }).join();
    EXPECT_EQ(pump(), "x");
}

TEST_F(MainPoolTest, LeavesOtherQueuesForTheNextPump) {
    TaskQueue a(TaskQueue::Main), b(TaskQueue::Main);
    a.pushTask(makeTask([&] { push(a, "A"), push(b, "B"); }));
    EXPECT_EQ(pump(), "A");
    EXPECT_EQ(pump(), "B");
}

TEST_F(MainPoolTest, RunsInAPumpOfATaskWhatTheOuterOneStillHad) {
    TaskQueue a(TaskQueue::Main), b(TaskQueue::Main), c(TaskQueue::Main), d(TaskQueue::Main);
    a.pushTask(makeTask([&] {
        push(d, "D"), push(a, "A");
        m_pool->processEvents();
        m_ran += '.';
        push(c, "c");
    }));
    push(b, "B"), push(c, "C");
    EXPECT_EQ(pump(), "BCD.A");
    EXPECT_EQ(pump(), "c");
    EXPECT_TRUE(isClean(a) && isClean(b) && isClean(c) && isClean(d));
}

TEST_F(MainPoolTest, RunsAQueueThatWasAborted) {
    const Shares shares;
    TaskQueue a(TaskQueue::Main), b(TaskQueue::Main), c(TaskQueue::Main);
    push(a, "A"), push(b, "B"), push(c, "C");
    b.pushTaskN(7, shares.task().get(), 9);
    b.pushBarrier();
    b.pushTask(shares.task());
    b.abort();
    EXPECT_TRUE(isClean(b) && shares.inUse() == 0);
    EXPECT_EQ(pump(), "AC");
    push(b, "b"), push(a, "a");
    EXPECT_EQ(pump(), "ba");
    // From its own run, with the rest of the queue at hand and behind a barrier.
    b.pushTask(makeTask([&] {
        push(b, "x");
        b.abort();
        push(b, "y");
    }));
    b.pushTaskN(3, task('z').get());
    b.pushBarrier();
    push(b, "z");
    EXPECT_EQ(pump(), "y");
    push(b, "b");
    EXPECT_EQ(pump(), "b");
    EXPECT_TRUE(isClean(b));
}

TEST_F(MainPoolTest, ForgetsQueuesThatAreDestroyed) {
    const Shares shares;
    auto a = makeObject<TaskQueue>(TaskQueue::Main), b = makeObject<TaskQueue>(TaskQueue::Main);
    TaskQueue c(TaskQueue::Main);
    TaskQueue& same = *a;
    // One destroys itself and one that is still to run.
    a->pushTask(makeTask([&, own = a]() mutable {
        push(same, "x");
        a = b = nullptr;
        own = nullptr;
        m_ran += '!';
    }));
    a->pushTask(shares.task());
    a->pushBarrier();
    a->pushTask(shares.task());
    push(*b, "y"), push(c, "C");
    EXPECT_EQ(pump(), "!C");
    EXPECT_EQ(shares.inUse(), 0);

    TaskQueue d(TaskQueue::Main);
    push(c, "1"), push(d, "2");
    EXPECT_TRUE(m_pool->removeMainQueue(&c) == 1 && m_pool->removeMainQueue(&c) == 0);
    m_pool->pushMainQueue(&c);
    EXPECT_EQ(pump(), "21");
}

TEST_F(MainPoolTest, RefusesToWaitOnTheMainThread) {
    support::LogLines lines;
    TaskQueue queue(TaskQueue::Main);
    queue.wait();
    std::jthread([&] { queue.wait(); }).join();
    EXPECT_TRUE(lines.take().empty());
    queue.pushTask(makeTask([&] { queue.wait(); }));
    queue.wait();
    queue.pause();
    queue.resume();
    EXPECT_EQ(lines.takeOne(), "[ASSERT] [TASKS] wait of the main queue on the main thread AND "
                               "[ASSERT] [TASKS] pause of a main queue AND [ASSERT] [TASKS] resume of a main queue");
    pump();
    EXPECT_EQ(lines.takeOne(), "[ASSERT] [TASKS] wait of a task queue from one of its own tasks");
    push(queue, "A");
    EXPECT_EQ(pump(), "A");
}

TEST_F(MainPoolTest, HasOneCurrentPoolAtATime) {
    {
        MainPool second;
        EXPECT_EQ(MainPool::current(), m_pool.get());
    }
    EXPECT_EQ(MainPool::current(), m_pool.get());
    TaskQueue queue(TaskQueue::Main); // keeps the pool that it was made for
    push(queue, "A");
    EXPECT_EQ(pump(), "A");
}

} // namespace
} // namespace kiv
