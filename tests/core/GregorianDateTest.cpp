// Hunts: days and months off by one, around leap years, before 1970 and before the year 0; overflow at the ends of the
// range; texts that are no dates.
#include "kiv/core/GregorianDate.h"
#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"

#include <chrono>
#include <gtest/gtest.h>

namespace kiv {
namespace {

namespace chrono = std::chrono;

GregorianDate date(std::string_view text) {
    GregorianDate read;
    EXPECT_TRUE(GregorianDate::fromString(text, read)) << text;
    return read;
}

const GregorianDate first(-9999, 1, 1), last(9999, 12, 31, 23, 59, 59, 999999);

TEST(GregorianDate, AgreesWithTheStandardCalendar) {
    SeededRandom random(5);
    const auto below = [&](int64_t end) { return static_cast<int64_t>(random.randomUInt64() % uint64_t(end)); };
    for (int i = 0; i < 20000; ++i) {
        const int64_t moment = first.getMicroseconds() + below(last.getMicrosecondsSince(first));
        const chrono::sys_time<chrono::microseconds> time{chrono::microseconds(moment)};
        const auto day = chrono::floor<chrono::days>(time);
        const chrono::year_month_day expected(day);
        const chrono::hh_mm_ss clock(time - day);
        const GregorianDate made(int(expected.year()), int(unsigned(expected.month())), int(unsigned(expected.day())),
                                 int(clock.hours().count()), int(clock.minutes().count()), int(clock.seconds().count()),
                                 int(clock.subseconds().count()));
        ASSERT_EQ(made.getMicroseconds(), moment);
        ASSERT_EQ(GregorianDate(made.getFields()), made);
        ASSERT_EQ(made.toString(), utcTimeText(moment));
        ASSERT_EQ(made.getMicrosecondsSince(date(made.toString())), made.getMicrosecond() % 1000);
        ASSERT_EQ(made.getDayOfWeek(), int(chrono::weekday(day).iso_encoding()));
        ASSERT_EQ(made.getDaysSince(GregorianDate(made.getYear(), 1, 1)) + 1, made.getDayOfYear());
        const chrono::year_month_day_last end = expected.year() / expected.month() / chrono::last;
        ASSERT_EQ(GregorianDate::getDaysInMonth(made.getYear(), made.getMonth()), int(unsigned(end.day())));
        ASSERT_EQ(GregorianDate::isLeapYear(made.getYear()), expected.year().is_leap());

        const int64_t days = below(8000000) - 4000000, months = below(240000) - 120000;
        const GregorianDate later = made.addDays(days);
        ASSERT_TRUE(!later.isValid() || (later.getDaysSince(made) == days && later.addDays(-days) == made));
        const bool isInRange = first.getMicroseconds() <= moment + days * 86400000000 &&
                               moment + days * 86400000000 <= last.getMicroseconds();
        ASSERT_EQ(later.isValid(), isInRange);
        const auto month = expected.year() / expected.month() + chrono::months(months);
        const GregorianDate moved = made.addMonths(months);
        ASSERT_EQ(moved.isValid(), chrono::abs(month.year() - chrono::year(0)) <= chrono::years(9999));
        if (!moved.isValid()) continue;
        const auto dayThere = std::min(expected.day(), (month / chrono::last).day());
        ASSERT_EQ(dayThere, chrono::day(unsigned(moved.getDay())));
        ASSERT_EQ(month.month(), chrono::month(unsigned(moved.getMonth())));
        ASSERT_EQ(moved.getHour() * 60 + moved.getMinute(), made.getHour() * 60 + made.getMinute());
    }
}

TEST(GregorianDate, ReadsIso8601) {
    const auto reads = [](const char* text, const char* same) { EXPECT_EQ(date(text).toString(), same) << text; };
    reads("2024-02-29", "2024-02-29T00:00:00.000Z"), reads("2024-02-29T13:05", "2024-02-29T13:05:00.000Z");
    reads("2024-02-29t13:05:09,0429999999999z", "2024-02-29T13:05:09.042Z");
    reads("2024-02-29 23:05:09.1", "2024-02-29T23:05:09.100Z");
    reads("2024-03-01T00:30:00+05:30", "2024-02-29T19:00:00.000Z"),
        reads("2024-02-29T23:00-01", "2024-03-01T00:00:00.000Z");
    reads("2024-02-29T23:00-0130", "2024-03-01T00:30:00.000Z");
    reads("+0000-02-29", "0000-02-29T00:00:00.000Z"), reads("-0001-12-31T23:59Z", "-0001-12-31T23:59:00.000Z");
    reads("-9999-01-01", first.toString().c_str());
    EXPECT_EQ(date("2024-02-29T13:05:09.0421239").getMicrosecond(), 42123);

    const GregorianDate before(2024, 2, 29);
    const auto refuses = [&](std::string_view text) {
        GregorianDate read = before;
        EXPECT_TRUE(!GregorianDate::fromString(text, read) && read == before) << text;
    };
    for (const char* text : {"",
                             "2024",
                             "2024-02",
                             "24-02-29",
                             "2023-02-29",
                             "1900-02-29",
                             "2024-13-01",
                             "2024-00-01",
                             "2024-01-00",
                             "2024-04-31",
                             "2024-02-29T",
                             "2024-02-29T24:00",
                             "2024-02-29T12:60",
                             "2024-02-29T12:00:60",
                             "2024-02-29T12",
                             "2024-02-29T12:00:00.",
                             "2024-02-29T12:00:00.x",
                             "2024-02-29T12:00+",
                             "2024-02-29T12:00+24",
                             "2024-02-29T12:00+01:60",
                             "2024-02-29T12:00+01:",
                             "2024-02-29T12:00Zx",
                             "2024-02-29Z",
                             " 2024-02-29",
                             "2024-02-29 ",
                             "+-024-02-29",
                             "2024-2-29",
                             "12024-02-29",
                             "-9999-01-01T00:00+00:01",
                             "9999-12-31T23:59-00:01",
                             "2024/02/29",
                             "2024-02-29T1\xC2\xB2:00"})
        refuses(text);
    refuses(std::string_view("2024-02-29\0", 11));
}

TEST(GregorianDate, MonthsEndEarly) {
    EXPECT_EQ(date("2024-01-31T10:00").addMonths(1), date("2024-02-29T10:00"));
    EXPECT_EQ(date("2024-03-31").addMonths(-13), date("2023-02-28"));
    EXPECT_EQ(date("2024-02-29").addYears(-4), date("2020-02-29"));
    EXPECT_EQ(date("2024-02-29").addYears(1), date("2025-02-28"));
    EXPECT_EQ(date("0001-01-15").addMonths(-13), date("-0001-12-15"));
    EXPECT_EQ(date("2023-12-31T23:59:59.999").addMilliseconds(1).addSeconds(59).addMinutes(59).addHours(-1),
              date("2023-12-31T23:59:59"));
    EXPECT_EQ(date("2024-03-01T00:00").getDaysSince(date("2024-02-28T23:59")), 2);
    EXPECT_EQ(date("1969-12-31T23:59").getDaysSince(date("1970-01-01")), -1);
    EXPECT_EQ(date("2024-02-29T13:05:09.042").getMillisecond(), 42);
}

TEST(GregorianDate, LeavesItsRangeAsInvalid) {
    const GregorianDate invalid;
    const auto isInvalid = [&](const GregorianDate& other) { EXPECT_EQ(other, invalid) << other.toString(); };
    for (const int64_t most : {INT64_MAX, INT64_MIN, INT64_MAX / 12 + 1, int64_t{1} << 32, int64_t{40000}}) {
        const GregorianDate& far = most < 0 ? first : last;
        isInvalid(far.addMicroseconds(most)), isInvalid(far.addMilliseconds(most)), isInvalid(far.addSeconds(most));
        isInvalid(far.addMinutes(most)), isInvalid(far.addHours(most)), isInvalid(far.addDays(most));
        isInvalid(far.addMonths(most)), isInvalid(far.addYears(most));
    }
    isInvalid(last.addMicroseconds(1)), isInvalid(first.addMicroseconds(-1)), isInvalid(first.addMonths(-1));
    isInvalid(GregorianDate::fromMicroseconds(INT64_MIN)), isInvalid(GregorianDate::fromMicroseconds(INT64_MAX));
    EXPECT_EQ(first.addMicroseconds(last.getMicrosecondsSince(first)), last);
    EXPECT_EQ(last.addYears(-2 * 9999).getYear(), -9999);
    isInvalid({10000, 1, 1}), isInvalid({INT32_MIN, 1, 1}), isInvalid({2024, INT32_MIN, 1}), isInvalid({2024, 1, 32});
    isInvalid({2024, 1, 1, 24}), isInvalid({2024, 1, 1, 0, -1}), isInvalid({2024, 1, 1, 0, 0, 0, 1000000});
    EXPECT_TRUE(invalid.toString().empty() && invalid.getFields() == GregorianDate::Fields() && invalid < first);
    EXPECT_EQ(invalid.getDayOfWeek() + invalid.getDayOfYear() + invalid.getMicroseconds(), 0);
    EXPECT_EQ(invalid.getMicrosecondsSince(last) + last.getDaysSince(invalid), 0);
    isInvalid(invalid.addDays(1)), isInvalid(invalid.addMonths(1));
    EXPECT_EQ(GregorianDate::getDaysInMonth(2024, 13) + GregorianDate::getDaysInMonth(2024, INT32_MIN), 0);
}

TEST(GregorianDate, TellsTheTimeOfTheClock) {
    ManualClock clock;
    clock.setUtcMicroseconds(951782399999999);
    EXPECT_EQ(GregorianDate::now(), GregorianDate(2000, 2, 28, 23, 59, 59, 999999));
}

} // namespace
} // namespace kiv
