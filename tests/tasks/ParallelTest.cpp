// Hunts: parts that run twice or never, callers that wait for each other's parts or for ever, kernels that fail.
#include "kiv/tasks/Parallel.h"
#include "TaskHelpers.h"
#include "kiv/tasks/HardwareConcurrency.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/support/LogLines.h"

#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <stdexcept>
#include <thread>
#include <vector>

namespace kiv {
namespace {

using support::Gate;

class ParallelTest : public testing::Test {
protected:
    support::Watchdog m_watchdog;
    SmartPointer<ThreadPool> m_pool = makeObject<ThreadPool>();
    Parallel m_parallel;
};

// Counts its parts, and calls a function in each.
class Kernel : public Parallel::Kernel {
public:
    explicit Kernel(
        unsigned parts, std::function<void(unsigned)> function = [](unsigned) {})
        : runs(parts), m_function(std::move(function)) {}

    void prepare(unsigned& parts) override {
        proposed = parts;
        parts = static_cast<unsigned>(runs.size());
    }
    void executePart(unsigned index) override {
        ++runs.at(index);
        if (std::this_thread::get_id() == caller) ++byCaller;
        m_function(index);
    }
    void finish() override {
        ++finished;
        EXPECT_EQ(std::this_thread::get_id(), caller);
    }
    // Every part once, and then the end.
    bool isDone() const {
        for (const auto& part : runs) {
            if (part != 1) return false;
        }
        return finished == 1;
    }

    unsigned proposed = 0;
    std::vector<std::atomic<int>> runs;
    std::atomic<int> byCaller{0};
    int finished = 0;
    const std::thread::id caller = std::this_thread::get_id();

private:
    const std::function<void(unsigned)> m_function;
};

TEST_F(ParallelTest, RunsEveryPartOnce) {
    for (const unsigned parts : {0u, 1u, 2u, 3u, 1000u}) {
        for (int round = 0; round < 20; ++round) {
            Kernel kernel(parts);
            m_parallel.execute(kernel);
            EXPECT_TRUE(kernel.isDone() && kernel.proposed == getHardwareConcurrency()) << parts;
            EXPECT_EQ(kernel.byCaller, parts == 1 ? 1 : 0) << parts;
        }
    }
}

TEST_F(ParallelTest, GoesOnWhenPartsFail) {
    support::LogLines lines;
    Kernel kernel(3, [](unsigned index) {
        if (index == 1) throw std::runtime_error("no film");
    });
    m_parallel.execute(kernel);
    EXPECT_TRUE(kernel.isDone());
    EXPECT_EQ(lines.takeOne(), "[TASKS] part 1 of a kernel has failed: no film");
    Kernel single(1, [](unsigned) { throw 7; });
    m_parallel.execute(single);
    EXPECT_TRUE(single.isDone());
    EXPECT_EQ(lines.takeOne(), "[TASKS] part 0 of a kernel has failed");
}

TEST_F(ParallelTest, DoesNotWaitForOtherCallers) {
    Gate entered, release;
    std::jthread other([&] {
        Kernel blocked(2, [&](unsigned index) {
            if (index != 0) return;
            entered.open();
            release.pass();
        });
        m_parallel.execute(blocked);
        EXPECT_TRUE(blocked.isDone());
    });
    entered.pass();
    Kernel kernel(100);
    m_parallel.execute(kernel);
    EXPECT_TRUE(kernel.isDone());
    release.open();
}

TEST_F(ParallelTest, ExecutesOnAllThreadsOfThePoolAtOnce) {
    const auto crowd = static_cast<unsigned>(m_pool->getMaxThreads());
    Gate here;
    std::list<TaskQueue> queues;
    for (unsigned i = 0; i < crowd; ++i) {
        queues.emplace_back(TaskQueue::Serial).pushTask(makeTask([&, crowd] {
            here.open();
            here.pass(crowd);
            Kernel kernel(10, [&](unsigned) { // and once more from every part
                Kernel inner(3);
                m_parallel.execute(inner);
                EXPECT_TRUE(inner.isDone());
            });
            m_parallel.execute(kernel);
            EXPECT_TRUE(kernel.isDone());
        }));
    }
    for (TaskQueue& queue : queues) queue.wait();
}

TEST_F(ParallelTest, ReturnsWhenThePoolEnds) {
    std::list<TaskQueue> queues;
    std::list<Blocker> blockers;
    for (int i = m_pool->getMaxThreads(); i > 0; --i) blockers.emplace_back(queues.emplace_back(TaskQueue::Serial));
    Gate prepared;
    std::jthread caller([&] {
        Kernel kernel(2);
        prepared.open();
        m_parallel.execute(kernel); // with no thread that would run the parts
        EXPECT_TRUE(kernel.isDone());
    });
    prepared.pass();
    std::jthread destroyer([&] { m_pool = nullptr; });
    caller.join();
    blockers.clear();
    destroyer.join();
    Kernel late(5);
    m_parallel.execute(late);
    EXPECT_TRUE(late.isDone());
}

} // namespace
} // namespace kiv
