#include "kiv/core/Clock.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fmt/format.h>

namespace kiv {
namespace {

using namespace std::chrono;

std::atomic<Clock*>& installed() {
    static Clock& system = *new Clock;
    static std::atomic<Clock*> clock{&system};
    return clock;
}

} // namespace

Clock& Clock::current() {
    return *installed().load(std::memory_order_acquire);
}

Clock* Clock::exchangeCurrent(Clock* clock) {
    return installed().exchange(clock);
}

Clock::~Clock() = default;

int64_t Clock::getMilliseconds() const {
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

int64_t Clock::getUtcMicroseconds() const {
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

int64_t Clock::getUniqueUtcMicroseconds() {
    const int64_t now = getUtcMicroseconds();
    int64_t last = m_lastUnique.load(std::memory_order_relaxed), unique;
    do {
        unique = std::max(now, last + 1);
    } while (!m_lastUnique.compare_exchange_weak(last, unique, std::memory_order_relaxed));
    return unique;
}

ManualClock::ManualClock(int64_t milliseconds, int64_t utcMicroseconds)
    : m_milliseconds(milliseconds), m_utcMicroseconds(utcMicroseconds), m_previous(exchangeCurrent(this)) {}

ManualClock::~ManualClock() {
    exchangeCurrent(m_previous);
}

void ManualClock::advance(int64_t milliseconds) {
    m_milliseconds += milliseconds;
    m_utcMicroseconds += milliseconds * 1000;
}

std::string utcTimeText(int64_t utcMicroseconds) {
    const sys_time<milliseconds> time(floor<milliseconds>(microseconds(utcMicroseconds)));
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    const int year = static_cast<int>(date.year());
    return fmt::format("{}{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", year < 0 ? "-" : "", std::abs(year),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count(), clock.subseconds().count());
}

} // namespace kiv
