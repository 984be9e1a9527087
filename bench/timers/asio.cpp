#include "Races.h"
#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <memory>

namespace {

// As with libuv, the timers are set at a time that lies back as far as the longest of them.
class Asio {
public:
    Asio() {
        for (size_t i = 0; i < bench::timerCount; ++i) m_timers.push_back(std::make_unique<asio::steady_timer>(m_io));
    }
    void schedule(size_t i, uint32_t delay) {
        if (i == 0)
            m_start = asio::steady_timer::clock_type::now() - std::chrono::milliseconds(bench::longestDelay + 1);
        m_timers[i]->expires_at(m_start + std::chrono::milliseconds(delay));
        m_timers[i]->async_wait([this](const asio::error_code& error) { m_fired += !error; });
    }
    // What is cancelled is told so, by the next poll.
    void cancel(size_t i) { m_timers[i]->cancel(); }
    size_t fireAll() {
        m_fired = 0;
        m_io.restart();
        m_io.poll();
        return m_fired;
    }

private:
    asio::io_context m_io{1};
    std::vector<std::unique_ptr<asio::steady_timer>> m_timers;
    asio::steady_timer::time_point m_start;
    size_t m_fired = 0;
};

const bool g_registered = (bench::raceTimers<Asio>("asio"), true);

} // namespace
