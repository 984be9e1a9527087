// Hunts: alarms out of order or lost, equal due times in another order than prescribed, a clock that wraps, alarms that
// die, move or return while they fire, references that are lost or released twice.
#include "kiv/tasks/Scheduler.h"
#include "kiv/core/Clock.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/WeakPointer.h"
#include "kiv/tasks/Alarm.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/LogLines.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <list>
#include <memory>
#include <random>
#include <stdexcept>

namespace kiv {
namespace {

using AlarmPointer = SmartPointer<Alarm>;
using testing::ElementsAre;

uint32_t now() {
    return Clock::current().getTime();
}

// The order as it is prescribed: a list that is searched alarm by alarm.
class ListModel {
public:
    void scheduleAt(Alarm* alarm, uint32_t time) {
        auto at = find(alarm);
        if (at == m_list.end()) return add(alarm, time);
        at->due = time;
        const auto next = std::next(at);
        if (next != m_list.end() && isLater(time, next->due)) {
            auto before = next;
            while (before != m_list.end() && isLater(time, before->due)) ++before;
            m_list.splice(before, m_list, at);
        } else if (at != m_list.begin() && isLater(std::prev(at)->due, time)) {
            auto behind = at;
            while (behind != m_list.begin() && isLater(std::prev(behind)->due, time)) --behind;
            m_list.splice(behind, m_list, at);
        }
    }
    void scheduleIn(Alarm* alarm, int minDelay, int maxDelay) {
        const uint32_t latest = now() + static_cast<uint32_t>(maxDelay);
        const auto at = find(alarm);
        if (at == m_list.end() || Clock::timeDifference(at->due, now()) > maxDelay) return scheduleAt(alarm, latest);
        const auto next = std::next(at);
        if (next == m_list.end()) {
            at->due = latest;
            return;
        }
        const int32_t room = Clock::timeDifference(next->due, now());
        if (room < minDelay) return scheduleAt(alarm, latest);
        at->due = now() + static_cast<uint32_t>(std::min(maxDelay, room));
    }
    void cancel(Alarm* alarm) {
        const auto at = find(alarm);
        if (at != m_list.end()) m_list.erase(at);
    }
    // The one that fires next in a tick, null when none does.
    Alarm* takeDue() {
        if (m_list.empty() || !isLater(now(), m_list.front().due)) return nullptr;
        Alarm* alarm = m_list.front().alarm;
        m_list.pop_front();
        return alarm;
    }

    void expectSame(const Scheduler& scheduler) const {
        const std::vector<Alarm*> alarms = scheduler.getAlarms();
        ASSERT_EQ(alarms.size(), m_list.size());
        ASSERT_EQ(scheduler.getNumberOfAlarms(), m_list.size());
        size_t i = 0;
        for (const Entry& entry : m_list) {
            ASSERT_EQ(alarms[i], entry.alarm) << "at " << i << " of " << alarms.size();
            ASSERT_EQ(alarms[i]->getDueTime(), entry.due) << "at " << i << " of " << alarms.size();
            ++i;
        }
    }

private:
    struct Entry {
        Alarm* alarm;
        uint32_t due;
    };
    using List = std::list<Entry>;

    static bool isLater(uint32_t a, uint32_t b) { return Clock::timeDifference(a, b) > 0; }
    static uint32_t distance(uint32_t a, uint32_t b) { return isLater(a, b) ? a - b : b - a; }
    List::iterator find(Alarm* alarm) {
        return std::find_if(m_list.begin(), m_list.end(), [&](const Entry& entry) { return entry.alarm == alarm; });
    }
    void add(Alarm* alarm, uint32_t time) {
        if (!m_list.empty() && distance(time, m_list.front().due) > distance(time, m_list.back().due)) {
            auto behind = m_list.end();
            while (behind != m_list.begin() && isLater(std::prev(behind)->due, time)) --behind;
            m_list.insert(behind, {alarm, time});
        } else {
            auto before = m_list.begin();
            while (before != m_list.end() && isLater(time, before->due)) ++before;
            m_list.insert(before, {alarm, time});
        }
    }

    List m_list;
};

struct Shape {
    const char* name;
    size_t alarms;
    int operations;
    uint32_t spread; // delays are below
    int stepLimit;   // the clock moves by less
    int swing = 0;   // how fast all delays shrink and grow again
};

void PrintTo(const Shape& shape, std::ostream* stream) {
    *stream << shape.name;
}

class SchedulerOrder : public testing::TestWithParam<Shape> {};

// Random operations, some of them from callbacks, with the model beside. The clock starts shortly before it wraps.
TEST_P(SchedulerOrder, IsThatOfTheListThatIsSearched) {
    const Shape& shape = GetParam();
    std::mt19937 random(20240229);
    const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    ManualClock clock(0x100000000 - 5000);
    Scheduler scheduler;
    ListModel model;
    std::vector<AlarmPointer> alarms;
    std::vector<Alarm*> fired;

    int step = 0;
    const auto delay = [&] {
        const bool isEqualToMany = below(4) == 0;
        const uint32_t spread = isEqualToMany ? std::min(shape.spread, 8u) : shape.spread;
        return static_cast<int>(below(spread)) + shape.swing * std::abs(step % 4000 - 2000);
    };
    const auto schedule = [&](Alarm* alarm) {
        int a = delay(), b = delay();
        switch (below(4)) {
        case 0: {
            const uint32_t time = now() + static_cast<uint32_t>(a) - below(4);
            scheduler.scheduleAt(alarm, time);
            model.scheduleAt(alarm, time);
            break;
        }
        case 1:
            b = a;
            [[fallthrough]];
        default: // now and then the wrong way round
            if (a > b && below(8) != 0) std::swap(a, b);
            scheduler.scheduleIn(alarm, a, b);
            model.scheduleIn(alarm, a, b);
        }
    };
    for (size_t i = 0; i < shape.alarms; ++i) {
        alarms.push_back(makeObject<Alarm>([&, i] {
            Alarm* alarm = alarms[i].get();
            ASSERT_EQ(model.takeDue(), alarm);
            ASSERT_FALSE(alarm->isScheduled());
            if (below(3) == 0) schedule(alarms[below(2) ? i : below(static_cast<uint32_t>(alarms.size()))].get());
        }));
    }
    for (; step < shape.operations && !testing::Test::HasFatalFailure(); ++step) {
        Alarm* alarm = alarms[below(static_cast<uint32_t>(alarms.size()))].get();
        const uint32_t action = below(20);
        if (action < 14) {
            schedule(alarm);
        } else if (action < 18) {
            scheduler.cancel(alarm);
            model.cancel(alarm);
        } else {
            if (shape.stepLimit > 0) clock.advance(below(static_cast<uint32_t>(shape.stepLimit)));
            scheduler.tick();
            ASSERT_EQ(model.takeDue(), nullptr);
        }
        ASSERT_NO_FATAL_FAILURE(model.expectSame(scheduler)) << shape.name << ", step " << step;
    }
    scheduler.cancelAll();
    for (const AlarmPointer& alarm : alarms) {
        EXPECT_FALSE(alarm->isScheduled());
        EXPECT_EQ(alarm->getReferenceCount(), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(, SchedulerOrder,
                         testing::Values(Shape{"Few", 6, 20000, 40, 12}, Shape{"OneBlock", 100, 10000, 5000, 200},
                                         Shape{"ManyBlocks", 2500, 6000, 20000, 300},
                                         Shape{"ManyEqual", 1500, 6000, 5, 0},
                                         Shape{"Swinging", 1500, 8000, 100, 2, 50},
                                         Shape{"FarAhead", 300, 6000, 0x7FFFFFF0, 8}),
                         [](const auto& shape) { return shape.param.name; });

class SchedulerTest : public testing::Test {
protected:
    // Notes its letter when it fires.
    AlarmPointer alarm(char letter) {
        return makeObject<Alarm>([this, letter] { fired += letter; });
    }
    std::string tickAfter(int milliseconds) {
        clock.advance(milliseconds);
        fired.clear();
        scheduler.tick();
        return fired;
    }

    std::string fired;
    ManualClock clock{1000};
    Scheduler scheduler;
};

TEST_F(SchedulerTest, FiresWhenTheClockIsBeyondTheDueTime) {
    const AlarmPointer a = alarm('a'), b = alarm('b');
    a->scheduleIn(0);
    scheduler.scheduleAt(b.get(), 999);
    EXPECT_EQ(tickAfter(0), "b");
    EXPECT_EQ(tickAfter(0), "");
    EXPECT_EQ(tickAfter(1), "a");
    EXPECT_FALSE(a->isScheduled());
    EXPECT_EQ(a->getReferenceCount(), 1);
}

TEST_F(SchedulerTest, EqualTimesNearTheFrontFireTheLatestFirst) {
    const AlarmPointer a = alarm('a'), b = alarm('b'), c = alarm('c'), d = alarm('d'), e = alarm('e');
    for (const AlarmPointer* each : {&a, &b}) (*each)->scheduleIn(100);
    for (const AlarmPointer* each : {&c, &d, &e}) (*each)->scheduleIn(200);
    EXPECT_EQ(tickAfter(1000), "bacde");
}

TEST_F(SchedulerTest, AnIntervalSparesTheOrderWhereTheNextLeavesRoom) {
    const AlarmPointer a = alarm('a'), b = alarm('b');
    a->scheduleIn(10);
    b->scheduleIn(30);
    a->scheduleIn(5, 50);
    EXPECT_EQ(a->getDueTime(), 1030u);
    EXPECT_THAT(scheduler.getAlarms(), ElementsAre(a.get(), b.get()));
    a->scheduleIn(31, 50);
    EXPECT_EQ(a->getDueTime(), 1050u);
    EXPECT_THAT(scheduler.getAlarms(), ElementsAre(b.get(), a.get()));
    a->scheduleIn(5, 60); // the last needs no room
    EXPECT_EQ(a->getDueTime(), 1060u);
    a->scheduleIn(0, 20); // due later than that
    EXPECT_EQ(a->getDueTime(), 1020u);
}

TEST_F(SchedulerTest, ACallbackMayScheduleAndCancel) {
    const AlarmPointer b = alarm('b'), c = alarm('c');
    int rounds = 0;
    AlarmPointer a = makeObject<Alarm>([&] {
        fired += 'a';
        EXPECT_FALSE(a->isScheduled());
        b->cancel();
        // Twice overdue at once, then for later.
        scheduler.scheduleAt(a.get(), now() - (++rounds < 3 ? 500 : 0));
    });
    scheduler.scheduleAt(a.get(), 1001);
    scheduler.scheduleAt(b.get(), 1002);
    scheduler.scheduleAt(c.get(), 1003);
    EXPECT_EQ(tickAfter(10), "aaac");
    EXPECT_EQ(tickAfter(0), "");
    EXPECT_EQ(tickAfter(1), "a");
    EXPECT_EQ(b->getReferenceCount(), 1);
    a->cancel();
    a->getCallback().clear();
}

TEST_F(SchedulerTest, HoldsAnAlarmUntilItHasFired) {
    Alarm* last = new Alarm; // owned by the list alone
    last->getCallback().set([&, last, token = std::make_shared<int>(1)] {
        EXPECT_EQ(last->getReferenceCount(), 1);
        last->getCallback().clear();
        fired += static_cast<char>('0' + *token);
    });
    last->scheduleIn(1);
    AlarmPointer other = alarm('x');
    other->scheduleIn(2);
    WeakPointer<Alarm> watch(other);
    other = nullptr;
    EXPECT_TRUE(watch);
    EXPECT_EQ(tickAfter(2), "1");
    EXPECT_EQ(tickAfter(1), "x");
    EXPECT_FALSE(watch);
}

TEST_F(SchedulerTest, AnAlarmWithoutSmartPointersMayDieAtAnyTime) {
    {
        Alarm local([&] { fired += 'l'; });
        local.disableSmartPointers();
        local.scheduleIn(1);
        EXPECT_EQ(tickAfter(2), "l");
        local.scheduleIn(1);
    }
    EXPECT_EQ(scheduler.getNumberOfAlarms(), 0u);
    EXPECT_EQ(tickAfter(2), "");
    // In its own callback, there also within another of its calls, and scheduled again.
    for (const bool isNested : {false, true}) {
        auto owner = std::make_unique<Alarm>();
        owner->disableSmartPointers();
        int depth = 0;
        owner->getCallback().set([&] {
            owner->scheduleIn(5);
            if (isNested && ++depth == 1) return owner->executeNowIfScheduled();
            owner.reset();
        });
        owner->scheduleIn(0);
        tickAfter(1);
        EXPECT_FALSE(owner);
        EXPECT_EQ(scheduler.getNumberOfAlarms(), 0u);
    }
}

TEST_F(SchedulerTest, ExecutesNowOnlyWhatIsScheduled) {
    const AlarmPointer a = alarm('a');
    a->executeNowIfScheduled();
    EXPECT_EQ(fired, "");
    a->scheduleIn(50);
    a->executeNowIfScheduled();
    a->executeNowIfScheduled();
    EXPECT_EQ(fired, "a");
    EXPECT_EQ(a->getReferenceCount(), 1);
    EXPECT_EQ(tickAfter(100), "");
}

TEST_F(SchedulerTest, AnExceptionIsLoggedAndTheOthersFire) {
    const AlarmPointer b = alarm('b'), a = makeObject<Alarm>([] { throw std::runtime_error("no paper"); });
    a->scheduleIn(1);
    b->scheduleIn(2);
    support::LogLines lines;
    EXPECT_EQ(tickAfter(3), "b");
    EXPECT_EQ(lines.takeOne(), "[SCHEDULER] an alarm has thrown an exception: no paper");
    EXPECT_EQ(a->getReferenceCount(), 1);
}

TEST_F(SchedulerTest, TheFirstIsCurrentUntilItDies) {
    const AlarmPointer a = alarm('a'), b = alarm('b');
    {
        auto second = std::make_unique<Scheduler>();
        EXPECT_EQ(Scheduler::current(), &scheduler);
        second->scheduleAt(a.get(), 1001);
        second->scheduleAt(b.get(), 1002);
        scheduler.cancel(a.get()); // wherever it is
        EXPECT_THAT(second->getAlarms(), ElementsAre(b.get()));
        scheduler.scheduleAt(b.get(), 1005); // it goes over
        EXPECT_EQ(second->getNumberOfAlarms(), 0u);
        second->scheduleAt(a.get(), 1001);
        EXPECT_EQ(b->getReferenceCount(), 2);
    }
    EXPECT_FALSE(a->isScheduled());
    EXPECT_EQ(a->getReferenceCount(), 1);
    EXPECT_EQ(tickAfter(100), "b");
}

TEST(Scheduler, IsMissedByAnAlarmWithoutOne) {
    EXPECT_EQ(Scheduler::current(), nullptr);
    const auto a = makeObject<Alarm>();
    support::LogLines lines;
    a->scheduleIn(1);
    EXPECT_EQ(lines.takeOne(), "[SCHEDULER] there is no scheduler for an alarm");
    a->cancel();
    a->executeNowIfScheduled();
    EXPECT_FALSE(a->isScheduled());
}

TEST_F(SchedulerTest, KeepsTheOrderOfVeryMany) {
    std::mt19937 random(99);
    for (const double exponent : {1.0, 9.0}) { // spread evenly, and most of them near
        std::vector<AlarmPointer> alarms;
        uint32_t last = 0;
        size_t count = 0;
        for (int i = 0; i < 40000; ++i) {
            alarms.push_back(makeObject<Alarm>());
            Alarm* alarm = alarms.back().get();
            alarm->getCallback().set([&, alarm] {
                ++count;
                ASSERT_GE(alarm->getDueTime(), last);
                last = alarm->getDueTime();
            });
            const double delay = 1e8 * std::pow(std::uniform_real_distribution<>()(random), exponent);
            alarm->scheduleIn(static_cast<int>(delay));
            if (i % 3 == 0) alarms[random() % alarms.size()]->cancel();
        }
        const size_t scheduled = scheduler.getNumberOfAlarms();
        EXPECT_GT(scheduled, 25000u);
        for (int i = 0; i < 1000; ++i) tickAfter(100001);
        EXPECT_EQ(count, scheduled);
        EXPECT_EQ(scheduler.getNumberOfAlarms(), 0u);
    }
}

TEST_F(SchedulerTest, TakesNoMemoryForAnAlarmThatIsScheduledAgain) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "allocations of the library are not counted here";
    std::vector<AlarmPointer> alarms;
    for (char letter = 'a'; letter < 'k'; ++letter) alarms.push_back(alarm(letter));
    fired.reserve(100);
    const auto round = [&] {
        for (int i = 0; i < 1000; ++i) {
            for (const AlarmPointer& each : alarms) each->scheduleIn(i % 7);
            if (i % 3 == 0) tickAfter(4);
        }
        scheduler.cancelAll();
    };
    round();
    EXPECT_EQ(support::allocationsOf(round), 0u);
}

// Every allocation fails once, for new alarms and for those that move.
TEST_F(SchedulerTest, AShortageOfMemoryChangesNothing) {
    std::mt19937 random(7);
    std::vector<AlarmPointer> alarms;
    for (int i = 0; i < 2000; ++i) alarms.push_back(makeObject<Alarm>());
    size_t failures = 0;
    const auto schedule = [&](Alarm* each, int delay) {
        const std::vector<Alarm*> before = scheduler.getAlarms();
        const uint32_t due = each->getDueTime();
        for (size_t successes = 0;; ++successes, ++failures) {
            try {
                const support::AllocationFault fault(successes);
                return each->scheduleIn(delay);
            } catch (const std::bad_alloc&) {
            }
            EXPECT_EQ(scheduler.getAlarms(), before);
            EXPECT_EQ(each->getDueTime(), due);
            EXPECT_EQ(each->getReferenceCount(), each->isScheduled() ? 2 : 1);
        }
    };
    for (int round = 0; round < 2; ++round)
        for (const AlarmPointer& each : alarms) schedule(each.get(), static_cast<int>(random() % 100000) >> round * 3);
    EXPECT_EQ(failures > 0, support::countsLibraryAllocations());
    EXPECT_EQ(scheduler.getNumberOfAlarms(), alarms.size());
    const std::vector<Alarm*> order = scheduler.getAlarms();
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end(),
                               [](Alarm* a, Alarm* b) { return a->getDueTime() < b->getDueTime(); }));
}

} // namespace
} // namespace kiv
