#include "Races.h"
#include "kiv/core/Clock.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/tasks/Alarm.h"
#include "kiv/tasks/Scheduler.h"

namespace {

class Kiv {
public:
    Kiv() {
        for (size_t i = 0; i < bench::timerCount; ++i)
            m_alarms.push_back(kiv::makeObject<kiv::Alarm>([this] { ++m_fired; }));
    }
    void schedule(size_t i, uint32_t delay) {
        m_scheduler.scheduleAt(m_alarms[i].get(), kiv::Clock::current().getTime() + delay);
    }
    void cancel(size_t i) { m_scheduler.cancel(m_alarms[i].get()); }
    size_t fireAll() {
        m_fired = 0;
        m_clock.advance(bench::longestDelay + 1);
        m_scheduler.tick();
        return m_fired;
    }

private:
    kiv::ManualClock m_clock;
    kiv::Scheduler m_scheduler;
    std::vector<kiv::SmartPointer<kiv::Alarm>> m_alarms;
    size_t m_fired = 0;
};

const bool g_registered = (bench::raceTimers<Kiv>("kiv"), true);

} // namespace
