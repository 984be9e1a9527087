#include "Races.h"
#include <uv.h>

namespace {

// libuv takes its time from the system whenever it looks for what is due, so the timers are set at a time that lies
// back as far as the longest of them.
class Libuv {
public:
    Libuv() : m_timers(bench::timerCount) {
        uv_loop_init(&m_loop);
        for (uv_timer_t& timer : m_timers) {
            uv_timer_init(&m_loop, &timer);
            timer.data = this;
        }
    }
    ~Libuv() {
        for (uv_timer_t& timer : m_timers) uv_close(reinterpret_cast<uv_handle_t*>(&timer), nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }
    void schedule(size_t i, uint32_t delay) {
        if (i == 0) setBack();
        uv_timer_start(
            &m_timers[i], [](uv_timer_t* timer) { ++static_cast<Libuv*>(timer->data)->m_fired; }, delay, 0);
    }
    void cancel(size_t i) { uv_timer_stop(&m_timers[i]); }
    size_t fireAll() {
        m_fired = 0;
        uv_run(&m_loop, UV_RUN_NOWAIT);
        return m_fired;
    }

private:
    void setBack() {
        uv_update_time(&m_loop);
        bench::check(m_loop.time > bench::longestDelay + 1, "libuv, which needs a system that is up for a while,");
        m_loop.time -= bench::longestDelay + 1;
    }

    uv_loop_t m_loop;
    std::vector<uv_timer_t> m_timers;
    size_t m_fired = 0;
};

const bool g_registered = (bench::raceTimers<Libuv>("libuv"), true);

} // namespace
