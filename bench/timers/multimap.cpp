#include "Races.h"
#include <functional>
#include <map>

namespace {

// What one would write oneself: a callback by due time, cancelled by its iterator.
class Multimap {
public:
    Multimap() : m_timers(bench::timerCount) {}
    void schedule(size_t i, uint32_t delay) {
        m_timers[i] = m_callbacks.emplace(m_now + delay, [this] { ++m_fired; });
    }
    void cancel(size_t i) { m_callbacks.erase(m_timers[i]); }
    size_t fireAll() {
        m_fired = 0;
        m_now += bench::longestDelay + 1;
        while (!m_callbacks.empty() && m_callbacks.begin()->first < m_now) {
            const auto callback = std::move(m_callbacks.begin()->second);
            m_callbacks.erase(m_callbacks.begin());
            callback();
        }
        return m_fired;
    }

private:
    using Callbacks = std::multimap<uint64_t, std::function<void()>>;
    Callbacks m_callbacks;
    std::vector<Callbacks::iterator> m_timers;
    uint64_t m_now = 0;
    size_t m_fired = 0;
};

const bool g_registered = (bench::raceTimers<Multimap>("multimap"), true);

} // namespace
