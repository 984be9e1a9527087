#pragma once

#include "kiv/core/Delegate.h"
#include "kiv/core/Object.h"

#include <cstdint>
#include <functional>

namespace kiv {

class Scheduler;

namespace internal {
class AlarmList;
}

// A timer that fires once, in milliseconds of the clock; Scheduler.h says when. While scheduled it is referenced by its
// scheduler, which also holds that reference during the callback: so it is made by makeObject, or, on the stack or as a
// member, told disableSmartPointers() first. Its destructor takes it off the schedule, also from within its callback.
// A callback that holds an owner of its own alarm keeps both for ever: let it capture a weak pointer.
// Threads: the main thread's alone, but for the destructor of one that is not scheduled.
class KIV_API Alarm : public Object {
    KIV_OBJECT(Alarm, Object)

public:
    Alarm() = default;
    explicit Alarm(Delegate<void()> callback) : m_callback(std::move(callback)) {}
    explicit Alarm(std::function<void()> callback) : m_callback(std::move(callback)) {}
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;
    ~Alarm() override;

    // On Scheduler::current(), see there; logs an error when there is none.
    void scheduleIn(int delay) { scheduleIn(delay, delay); }
    void scheduleIn(int minDelay, int maxDelay);
    void cancel();
    // Cancels and fires now; does nothing when not scheduled.
    void executeNowIfScheduled();

    bool isScheduled() const { return m_scheduler != nullptr; }
    // When it is, or last was, due.
    uint32_t getDueTime() const { return m_dueTime; }
    // What it calls; may be set at any time.
    Delegate<void()>& getCallback() { return m_callback; }

private:
    friend class Scheduler;
    friend class internal::AlarmList;
    struct Firing;

    uint32_t m_dueTime = 0;
    uint32_t m_place = 0; // the list's, valid while scheduled
    Scheduler* m_scheduler = nullptr;
    Firing* m_firing = nullptr; // the innermost call in progress
    Delegate<void()> m_callback;
};

} // namespace kiv
