#pragma once

#include "kiv/core/Object.h"
#include "kiv/tasks/AlarmList.h"

#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

namespace kiv {

class Alarm;

// Fires alarms on the main thread, in the order of their due times. Times are those of Clock::getTime(), a count that
// wraps: they are right as long as alarms are at most 24.8 days ahead and no more than half of that passes between two
// ticks.
// The first one made is current() until it dies; destroying it cancels its alarms. Never destroy it from a callback.
// Threads: that of its constructor alone, which is asserted.
class KIV_API Scheduler : public Object {
    KIV_OBJECT(Scheduler, Object)

public:
    // Null when there is none.
    static Scheduler* current();

    Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;
    ~Scheduler() override;
    // Lets another one be the current one, while references to this are still held.
    void uninstall();

    // Makes the alarm due at `time`, and takes a reference unless it is scheduled. Among alarms that are due at the
    // same time a new one comes last when it is nearer to the last alarm than to the first, else first. One that is
    // scheduled already comes first among them when it is put off, last when it is brought forward, and stays when
    // nothing changes.
    void scheduleAt(Alarm* alarm, unsigned time);
    // Makes the alarm due in `maxDelay` milliseconds, or earlier, but not before `minDelay`, if that spares it from
    // changing places with the alarm behind. Scheduled ones that are due later than `maxDelay` are brought forward.
    void scheduleIn(Alarm* alarm, int minDelay, int maxDelay);
    // Releases the reference; does nothing to an alarm that is not scheduled.
    void cancel(Alarm* alarm);
    void cancelAll();

    // Fires what is due before this millisecond. What a callback schedules into the past fires within the same tick,
    // so one that always does never lets it end.
    void tick();

    size_t getNumberOfAlarms() const { return m_alarms.size(); }
    // In the order in which they will fire.
    std::vector<Alarm*> getAlarms() const;

private:
    friend class Alarm;

    bool isOwnThread() const { return std::this_thread::get_id() == m_thread; }
    // The clock as a count that doesn't wrap.
    int64_t updateNow();
    int64_t unwrapped(unsigned time);
    // Scheduled here or not.
    void put(Alarm* alarm, int64_t due);
    void move(Alarm* alarm, int64_t due);
    void unlink(Alarm* alarm);
    void fire(Alarm* alarm);

    internal::AlarmList m_alarms;
    int64_t m_now; // as of the last look at the clock; its lower half is the clock's
    const std::thread::id m_thread = std::this_thread::get_id();
};

} // namespace kiv
