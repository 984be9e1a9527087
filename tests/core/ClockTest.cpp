// Hunts: dates off by a day around leap years and before 1970, a manual clock that outstays its life, a clock that
// wraps, unique times that repeat.
#include "kiv/core/Clock.h"

#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace kiv {
namespace {

TEST(Clock, WritesUtcTimesSortably) {
    auto is = [](int64_t microseconds, const char* text) { EXPECT_EQ(utcTimeText(microseconds), text); };
    is(0, "1970-01-01T00:00:00.000Z"), is(-1, "1969-12-31T23:59:59.999Z");
    is(-62167219200001000, "-0001-12-31T23:59:59.999Z");
    is(951782399999999, "2000-02-28T23:59:59.999Z"), is(951782400000000, "2000-02-29T00:00:00.000Z");
    is(4107542400042000, "2100-03-01T00:00:00.042Z");
    is(253402300799999999, "9999-12-31T23:59:59.999Z");
}

TEST(Clock, StandsStillWhileAManualClockLives) {
    const int64_t before = Clock::current().getMilliseconds();
    {
        ManualClock outer(5, 7000);
        {
            ManualClock inner;
            inner.advance(int64_t{1} << 40);
            EXPECT_EQ(Clock::current().getMilliseconds(), int64_t{1} << 40);
        }
        outer.advance(3);
        EXPECT_TRUE(Clock::current().getMilliseconds() == 8 && Clock::current().getUtcMicroseconds() == 10000);
    }
    EXPECT_GE(Clock::current().getMilliseconds(), before);
    EXPECT_GT(Clock::current().getUtcMicroseconds(), 1600000000000000);
}

TEST(Clock, GivesUniqueTimesAsTheTimeStandsOrGoesBack) {
    ManualClock clock(0, 1000);
    const auto unique = [&](int64_t utc) {
        clock.setUtcMicroseconds(utc);
        return clock.getUniqueUtcMicroseconds();
    };
    EXPECT_TRUE(unique(1000) == 1000 && unique(1000) == 1001 && unique(-5) == 1002 && unique(5000) == 5000);
    std::vector<std::vector<int64_t>> times(4);
    {
        std::vector<std::jthread> threads;
        for (auto& own : times)
            threads.emplace_back([&] {
                for (int i = 0; i < 2000; ++i) own.push_back(clock.getUniqueUtcMicroseconds());
            });
    }
    std::set<int64_t> all;
    for (const auto& own : times) all.insert(own.begin(), own.end());
    EXPECT_TRUE(all.size() == 8000 && *all.rbegin() == 13000);
}

} // namespace
} // namespace kiv
