#include "kiv/tasks/Alarm.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/tasks/AlarmFiring.h"
#include "kiv/tasks/Scheduler.h"

namespace kiv {

Alarm::~Alarm() {
    // The list's reference is not released here: that would delete the object a second time.
    if (m_scheduler) m_scheduler->unlink(this);
    for (Firing* firing = m_firing; firing; firing = firing->outer) firing->isAlarmGone = true;
}

void Alarm::scheduleIn(int minDelay, int maxDelay) {
    if (Scheduler* scheduler = Scheduler::current()) return scheduler->scheduleIn(this, minDelay, maxDelay);
    logging::MessageStream(3, 2) << "[SCHEDULER] there is no scheduler for an alarm";
}

void Alarm::cancel() {
    if (m_scheduler) m_scheduler->cancel(this);
}

void Alarm::executeNowIfScheduled() {
    if (m_scheduler) m_scheduler->fire(this);
}

} // namespace kiv
