#include "Pieces.h"

#include "kiv/system/System.h"
#include "kiv/tasks/Alarm.h"
#include "kiv/tasks/LambdaTask.h"

#include <iostream>
#include <vector>

namespace {

// Adds up the squares of the numbers below 1000, in as many parts as there are processors.
class Squares : public kiv::Parallel::Kernel {
public:
    uint64_t sum = 0;

    void prepare(unsigned& parts) override { m_sums.resize(parts); }
    void executePart(unsigned index) override {
        for (uint64_t i = index; i < 1000; i += m_sums.size()) m_sums[index] += i * i;
    }
    void finish() override {
        for (const uint64_t part : m_sums) sum += part;
    }

private:
    std::vector<uint64_t> m_sums;
};

void useQueues() {
    using kiv::TaskQueue;

    const auto queue = kiv::makeObject<TaskQueue>(TaskQueue::Serial);
    int balance = 0;
    for (int i = 0; i < 100; ++i) queue->pushTask(kiv::makeTask([&balance] { ++balance; }));
    queue->wait();
    std::cout << balance << " tasks, one after the other\n";

    Squares squares;
    kiv::System::execute(squares);
    std::cout << "the squares make " << squares.sum << '\n';
}

void pump() {
    bool isOver = false;
    const auto alarm = kiv::makeObject<kiv::Alarm>(std::function<void()>([&isOver] {
        std::cout << "time is up\n";
        isOver = true;
    }));
    kiv::System::getGlobalParallelQueue().pushTask(kiv::makeTask([&alarm] {
        kiv::System::getGlobalMainQueue().pushTask(kiv::makeTask([&alarm] {
            std::cout << (kiv::System::isMainThread() ? "back on the main thread\n" : "elsewhere\n");
            alarm->scheduleIn(20);
        }));
    }));
    while (!isOver) kiv::System::processEvents();
}

} // namespace

void showTasks() {
    kiv::System::initialize();
    useQueues();
    pump();
    kiv::System::deinitialize();
}
