#include "Races.h"

#include <asio.hpp>

#include <atomic>
#include <functional>
#include <semaphore>

namespace {

// A pool of as many threads as there are processors; strands keep the order.
class Asio {
public:
    static constexpr const char* name = "asio";

    void serial(size_t tasks) {
        for (size_t i = 0; i < tasks; ++i) asio::post(m_strand, &bench::countRun);
        asio::post(m_strand, [this] { m_isOver.release(); });
        m_isOver.acquire();
    }
    void parallel(size_t tasks) {
        m_left = tasks;
        for (size_t i = 0; i < tasks; ++i) {
            post([] { bench::countRun(); });
        }
        m_isOver.acquire();
    }
    uint32_t sum() {
        std::atomic<uint32_t> all{0};
        m_left = m_threads;
        for (unsigned i = 0; i < m_threads; ++i) {
            post([&all, i, this] { all += bench::sumOfPart(i, m_threads); });
        }
        m_isOver.acquire();
        return all;
    }
    void loop() {
        m_left = m_threads;
        for (unsigned i = 0; i < m_threads; ++i) {
            post([] {});
        }
        m_isOver.acquire();
    }
    void pingPong(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) serial(1);
    }
    void volley(size_t rounds) {
        m_left = 2 * rounds;
        hit();
        m_isOver.acquire();
    }
    void eight(size_t rounds) {
        for (size_t i = 0; i < rounds; ++i) parallel(8);
    }

private:
    template <class Task>
    void post(Task task) {
        asio::post(m_pool, [task, this] {
            task();
            if (--m_left == 0) m_isOver.release();
        });
    }
    void hit() {
        asio::post(m_left % 2 == 0 ? m_strand : m_otherSide, [this] {
            bench::countRun();
            if (--m_left != 0)
                hit();
            else
                m_isOver.release();
        });
    }

    const unsigned m_threads = std::thread::hardware_concurrency();
    asio::thread_pool m_pool{m_threads};
    asio::strand<asio::thread_pool::executor_type> m_strand{m_pool.get_executor()};
    asio::strand<asio::thread_pool::executor_type> m_otherSide{m_pool.get_executor()};
    std::atomic<size_t> m_left{0};
    std::binary_semaphore m_isOver{0};
};

const bool added = bench::addAll<Asio>();

} // namespace
