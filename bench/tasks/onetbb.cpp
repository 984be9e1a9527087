#include "Races.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/flow_graph.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/parallel_reduce.h>
#include <oneapi/tbb/task_arena.h>
#include <oneapi/tbb/task_group.h>

#include <atomic>
#include <functional>
#include <semaphore>

namespace {

namespace tbb = oneapi::tbb;

// Serial queues are nodes of a flow graph.
class OneTbb {
public:
    static constexpr const char* name = "oneTBB";

    void serial(size_t tasks) {
        for (size_t i = 0; i < tasks; ++i) m_serial.try_put(&bench::countRun);
        m_graph.wait_for_all();
    }
    void parallel(size_t tasks) {
        tbb::task_group group;
        for (size_t i = 0; i < tasks; ++i) group.run(&bench::countRun);
        group.wait();
    }
    uint32_t sum() {
        const std::vector<uint32_t>& all = bench::integers();
        const auto add = [&](const tbb::blocked_range<size_t>& range, uint32_t sum) {
            return sum + bench::sumOf(all.data() + range.begin(), all.data() + range.end());
        };
        return tbb::parallel_reduce(tbb::blocked_range<size_t>(0, all.size()), 0u, add, std::plus<>());
    }
    void loop() {
        tbb::parallel_for(0u, m_threads, [](unsigned) {});
    }
    void pingPong(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) {
            m_arena.enqueue([this] {
                bench::countRun();
                m_isOver.release();
            });
            m_isOver.acquire();
        }
    }
    void volley(size_t rounds) {
        m_hitsLeft = 2 * rounds;
        hit();
        m_graph.wait_for_all();
    }
    void eight(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) parallel(8);
    }

private:
    using Task = std::function<void()>;
    using Node = tbb::flow::function_node<Task>;
    struct Run {
        tbb::flow::continue_msg operator()(const Task& task) const {
            task();
            return {};
        }
    };

    void hit() {
        (m_hitsLeft % 2 == 0 ? m_serial : m_otherSide).try_put([this] {
            bench::countRun();
            if (--m_hitsLeft != 0) hit();
        });
    }

    const unsigned m_threads = std::thread::hardware_concurrency();
    tbb::flow::graph m_graph;
    Node m_serial{m_graph, tbb::flow::serial, Run()};
    Node m_otherSide{m_graph, tbb::flow::serial, Run()};
    tbb::task_arena m_arena{1, 0};
    size_t m_hitsLeft = 0;
    std::binary_semaphore m_isOver{0};
};

const bool added = bench::addAll<OneTbb>();

} // namespace
