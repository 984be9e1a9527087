#include "kiv/tasks/Scheduler.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/tasks/AlarmFiring.h"

#include <atomic>
#include <cassert>
#include <exception>

namespace kiv {
namespace {

std::atomic<Scheduler*> g_current{nullptr};

uint64_t distance(int64_t a, int64_t b) {
    return static_cast<uint64_t>(a < b ? b - a : a - b);
}

// What a callback throws must neither end the process nor keep other alarms from firing.
void call(const Delegate<void()>& callback) {
    try {
        callback();
    } catch (const std::exception& exception) {
        logging::MessageStream(3, 2) << "[SCHEDULER] an alarm has thrown an exception: " << exception.what();
    } catch (...) {
        logging::MessageStream(3, 2) << "[SCHEDULER] an alarm has thrown an exception";
    }
}

} // namespace

Scheduler* Scheduler::current() {
    return g_current.load(std::memory_order_acquire);
}

Scheduler::Scheduler() : m_now(Clock::current().getTime()) {
    Scheduler* none = nullptr;
    g_current.compare_exchange_strong(none, this);
}

Scheduler::~Scheduler() {
    cancelAll();
    uninstall();
}

void Scheduler::uninstall() {
    Scheduler* self = this;
    g_current.compare_exchange_strong(self, nullptr);
}

int64_t Scheduler::updateNow() {
    return m_now += Clock::timeDifference(Clock::current().getTime(), static_cast<uint32_t>(m_now));
}

// The count of the last look serves to tell which turn of the clock is meant, unless `time` is so far from it that the
// time gone since then might matter: that spares most calls the question.
int64_t Scheduler::unwrapped(unsigned time) {
    int32_t ahead = Clock::timeDifference(time, static_cast<uint32_t>(m_now));
    constexpr int32_t near = 0x40000000;
    if (ahead < -near || ahead > near) {
        updateNow();
        ahead = Clock::timeDifference(time, static_cast<uint32_t>(m_now));
    }
    return m_now + ahead;
}

void Scheduler::scheduleAt(Alarm* alarm, unsigned time) {
    put(alarm, unwrapped(time));
}

void Scheduler::scheduleIn(Alarm* alarm, int minDelay, int maxDelay) {
    const int64_t now = updateNow();
    int64_t due = now + maxDelay, following = 0;
    // Of a single delay comes the same whether there is an alarm behind or not.
    if (minDelay < maxDelay && alarm->m_scheduler == this && m_alarms.dueTimeOf(alarm) <= due &&
        m_alarms.findFollowing(alarm, following) && following >= now + minDelay && following < due)
        due = following;
    put(alarm, due);
}

void Scheduler::put(Alarm* alarm, int64_t due) {
    assert(isOwnThread());
    if (alarm->m_scheduler == this) return move(alarm, due);
    const bool isLast =
        m_alarms.size() > 0 && distance(due, m_alarms.firstDueTime()) > distance(due, m_alarms.lastDueTime());
    const internal::AlarmList::Place place = m_alarms.makePlace(due, isLast);
    // Here rather than at the end: an atomic increment waits for what was written before.
    if (alarm->m_scheduler)
        alarm->m_scheduler->unlink(alarm);
    else
        alarm->increaseReferenceCount();
    m_alarms.insert(place, alarm);
    alarm->m_dueTime = static_cast<uint32_t>(due);
    alarm->m_scheduler = this;
}

// Whether it moves or stays: what is put off ends up before the alarms of its new time, what is brought forward behind.
void Scheduler::move(Alarm* alarm, int64_t due) {
    const int64_t before = m_alarms.dueTimeOf(alarm);
    if (due == before) return;
    m_alarms.move(alarm, due, due < before);
    alarm->m_dueTime = static_cast<uint32_t>(due);
}

void Scheduler::unlink(Alarm* alarm) {
    assert(isOwnThread());
    m_alarms.remove(alarm);
    alarm->m_scheduler = nullptr;
}

void Scheduler::cancel(Alarm* alarm) {
    if (!alarm->m_scheduler) return;
    alarm->m_scheduler->unlink(alarm);
    alarm->decreaseReferenceCount();
}

void Scheduler::cancelAll() {
    while (m_alarms.size() > 0) cancel(m_alarms.first());
}

std::vector<Alarm*> Scheduler::getAlarms() const {
    return m_alarms.inOrder();
}

void Scheduler::tick() {
    assert(isOwnThread());
    const int64_t now = updateNow();
    while (m_alarms.size() > 0 && m_alarms.firstDueTime() < now) fire(m_alarms.first());
}

// The delegate runs a copy of itself, so the alarm may change or die meanwhile. Only one without smart pointers can
// die: then there is no reference to release either.
void Scheduler::fire(Alarm* alarm) {
    unlink(alarm);
    Alarm::Firing firing{alarm->m_firing};
    alarm->m_firing = &firing;
    call(alarm->m_callback);
    if (firing.isAlarmGone) return;
    alarm->m_firing = firing.outer;
    alarm->decreaseReferenceCount();
}

} // namespace kiv
