#include "Races.h"
#include <functional>
#include <map>
#include <memory>

namespace {

// What one would write oneself: timers by due time, each an object that knows its place, as with the others.
class Multimap {
public:
    Multimap() {
        for (size_t i = 0; i < bench::timerCount; ++i)
            m_timers.push_back(std::make_unique<Timer>([this] { ++m_fired; }));
    }
    void schedule(size_t i, uint32_t delay) {
        m_timers[i]->place = m_scheduled.emplace(m_now + delay, m_timers[i].get());
    }
    void cancel(size_t i) { m_scheduled.erase(m_timers[i]->place); }
    size_t fireAll() {
        m_fired = 0;
        m_now += bench::longestDelay + 1;
        while (!m_scheduled.empty() && m_scheduled.begin()->first < m_now) {
            Timer* timer = m_scheduled.begin()->second;
            m_scheduled.erase(m_scheduled.begin());
            timer->callback();
        }
        return m_fired;
    }

private:
    struct Timer;
    using Scheduled = std::multimap<uint64_t, Timer*>;
    struct Timer {
        explicit Timer(std::function<void()> function) : callback(std::move(function)) {}
        std::function<void()> callback;
        Scheduled::iterator place;
    };

    std::vector<std::unique_ptr<Timer>> m_timers;
    Scheduled m_scheduled;
    uint64_t m_now = 0;
    size_t m_fired = 0;
};

const bool g_registered = (bench::raceTimers<Multimap>("multimap"), true);

} // namespace
