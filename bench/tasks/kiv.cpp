#include "Races.h"
#include "kiv/tasks/LambdaTask.h"
#include "kiv/tasks/Parallel.h"
#include "kiv/tasks/ThreadPool.h"

#include <atomic>
#include <semaphore>

namespace {

using kiv::SmartPointer;
using kiv::TaskQueue;
using Task = TaskQueue::Task;

kiv::ThreadPool& pool() {
    static kiv::ThreadPool& instance = *new kiv::ThreadPool;
    return instance;
}

class SumKernel : public kiv::Parallel::Kernel {
public:
    // More than there are threads: who begins early does more of them.
    void prepare(unsigned& parts) override { m_parts = parts *= 8; }
    void executePart(unsigned index) override { m_sum += bench::sumOfPart(index, m_parts); }
    uint32_t sum() const { return m_sum; }

private:
    unsigned m_parts = 0;
    std::atomic<uint32_t> m_sum{0};
};

struct EmptyKernel : kiv::Parallel::Kernel {
    void executePart(unsigned) override {}
};

// Pushes what makeOne() makes.
template <class MakeOne>
class Kiv {
public:
    Kiv() { pool(); }

    void serial(size_t tasks) { push(m_serial, tasks); }
    void parallel(size_t tasks) { push(m_parallel, tasks); }
    void pingPong(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) push(m_serial, 1);
    }
    void eight(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) push(m_parallel, 8);
    }
    void eightAhead(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) {
            for (int k = 0; k < 8; ++k) m_parallel.pushTask(m_makeOne(), 0);
            m_parallel.pushBarrier();
        }
        m_parallel.wait();
    }

protected:
    void push(TaskQueue& queue, size_t tasks) {
        for (size_t i = 0; i < tasks; ++i) queue.pushTask(m_makeOne(), 0);
        queue.wait();
    }

    MakeOne m_makeOne;
    kiv::ThreadPool& m_pool = pool();
    TaskQueue m_serial{TaskQueue::Serial};
    TaskQueue m_parallel{TaskQueue::GlobalParallel};
};

struct NewTask {
    SmartPointer<Task> operator()() const {
        return kiv::makeTask([] { bench::countRun(); });
    }
};

struct SharedTask {
    const SmartPointer<Task>& operator()() const { return task; }
    SmartPointer<Task> task = NewTask()();
};

class KivAll : public Kiv<NewTask> {
public:
    static constexpr const char* name = "kiv";

    void countedSerial(size_t runs) { pushCounted(m_serial, runs); }
    void countedParallel(size_t runs) { pushCounted(m_parallel, runs); }
    uint32_t sum() {
        SumKernel kernel;
        m_loops.execute(kernel);
        return kernel.sum();
    }
    void loop() {
        EmptyKernel kernel;
        m_loops.execute(kernel);
    }
    void volley(size_t rounds) {
        m_hitsLeft = 2 * rounds;
        hit();
        m_isOver.acquire();
    }

private:
    void pushCounted(TaskQueue& queue, size_t runs) {
        queue.pushTaskN(static_cast<unsigned>(runs), m_makeOne().get(), 0);
        queue.wait();
    }

    void hit() {
        TaskQueue& side = m_hitsLeft % 2 == 0 ? m_serial : m_otherSide;
        side.pushTask(kiv::makeTask([this] {
                          bench::countRun();
                          if (--m_hitsLeft != 0)
                              hit();
                          else
                              m_isOver.release();
                      }),
                      0);
    }

    kiv::Parallel m_loops;
    TaskQueue m_otherSide{TaskQueue::Serial};
    size_t m_hitsLeft = 0;
    std::binary_semaphore m_isOver{0};
};

struct KivShared : Kiv<SharedTask> {
    static constexpr const char* name = "kiv-shared";
};

const bool added[] = {bench::addAll<KivAll>(), bench::addAll<KivShared>()};

} // namespace
