#include "kiv/tasks/Parallel.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/platform/AddressWait.h"
#include "kiv/tasks/Dispatcher.h"
#include "kiv/tasks/HardwareConcurrency.h"
#include "kiv/tasks/LambdaTask.h"

#include <exception>
#include <thread>

namespace kiv {
namespace {

void executePart(Parallel::Kernel& kernel, unsigned index) {
    try {
        kernel.executePart(index);
    } catch (const std::exception& failure) {
        logging::MessageStream(3, 2) << "[TASKS] part " << index << " of a kernel has failed: " << failure.what();
    } catch (...) {
        logging::MessageStream(3, 2) << "[TASKS] part " << index << " of a kernel has failed";
    }
}

constexpr int smallKernelSpins = 100;
constexpr int waitSpins = 500;
constexpr int waitYields = 20;

// Counts the parts of one call down to zero; one thread waits for that.
class Countdown {
public:
    explicit Countdown(uint32_t parts) : m_left(parts) {}

    bool isOver() const { return (m_left.load(std::memory_order_acquire) & ~sleeping) == 0; }
    void countDown() {
        // The waiting thread may be gone with this object behind the subtraction.
        const std::atomic<uint32_t>* address = &m_left;
        if (m_left.fetch_sub(1, std::memory_order_acq_rel) == (sleeping | 1)) platform::wakeAllOnAddress(address);
    }
    // True when it is over within some microseconds.
    bool spin(int spins) const {
        for (int i = 0; i < spins; ++i) {
            if (isOver()) return true;
            KIV_PAUSE();
        }
        return isOver();
    }
    void sleep() {
        uint32_t left = m_left.fetch_or(sleeping, std::memory_order_acq_rel) | sleeping;
        while (left != sleeping) { // the value that was looked at, or the last part may have come in between
            platform::waitOnAddress(m_left, left);
            left = m_left.load(std::memory_order_acquire);
        }
    }

private:
    static constexpr uint32_t sleeping = 0x80000000;

    std::atomic<uint32_t> m_left;
};

} // namespace

Parallel::Kernel::~Kernel() = default;
void Parallel::Kernel::prepare(unsigned&) {}
void Parallel::Kernel::finish() {}

Parallel::Parallel() : m_queue(makeObject<TaskQueue>(TaskQueue::GlobalParallel)) {
    m_queue->m_isAwaited = true;
}

Parallel::~Parallel() = default;

void Parallel::execute(Kernel& kernel) {
    unsigned parts = getHardwareConcurrency();
    kernel.prepare(parts);
    const std::shared_ptr<internal::Dispatcher>& dispatcher = m_queue->m_dispatcher;
    if (parts == 1 || !dispatcher || !dispatcher->isRunning()) {
        while (parts != 0) kiv::executePart(kernel, --parts);
    } else if (parts != 0) {
        Countdown countdown(parts);
        const auto task = makeTask([&](TaskContext& context) {
            kiv::executePart(kernel, context.getIndex());
            countdown.countDown();
        });
        // Were all threads of the pool to wait here, nobody would be left to run the parts.
        const bool takesPart = dispatcher->isWorker();
        m_queue->push(parts, task.get(), 0, takesPart);
        if (takesPart) m_queue->joinIn();
        // A small kernel is done sooner by the threads that are awake than others wake up.
        if (!countdown.spin(smallKernelSpins)) {
            if (!takesPart) dispatcher->wakeForRequests();
            bool isOver = countdown.spin(waitSpins);
            for (int i = 0; i < waitYields && !isOver; ++i) {
                std::this_thread::yield(); // a part may need this processor
                isOver = countdown.isOver();
            }
            if (!isOver) countdown.sleep();
        }
    }
    kernel.finish();
}

} // namespace kiv
