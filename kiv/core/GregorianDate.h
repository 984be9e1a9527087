#pragma once

#include "kiv/platform/Compiler.h"

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace kiv {

// A moment as date and time of day: UTC, in the Gregorian calendar also before it was introduced, to the microsecond,
// in the years -9999 (10000 BC; the year 0 is 1 BC) to 9999. A plain value. Whatever would be no such moment, or leave
// those years, is invalid, and so is all that is worked out from it; invalid dates are equal, and before all others.
class KIV_API GregorianDate {
public:
    struct Fields {
        int year = 0;
        int month = 0; // 1 to 12
        int day = 0;   // 1 to 31
        int hour = 0;
        int minute = 0;
        int second = 0; // 0 to 59: there are no leap seconds
        int microsecond = 0;

        friend bool operator==(const Fields& a, const Fields& b) = default;
    };

    static const char* getStaticClassName() { return "GregorianDate"; }
    // Of Clock::current().
    static GregorianDate now();
    static GregorianDate fromMicroseconds(int64_t since1970);
    // Reads ISO 8601 into `out`; false leaves it unchanged. "2024-02-29", with "T13:05", ":09" and ".042" behind if
    // wanted, and after a time "Z" or the distance to UTC as in "+05:30"; without, it is UTC. The year may have a sign.
    // Letters may be small, the "T" a blank and the point a comma; digits after the sixth of a second are ignored.
    static bool fromString(std::string_view text, GregorianDate& out);
    static bool isLeapYear(int year);
    // 0 where there is no such month.
    static int getDaysInMonth(int year, int month);

    // Invalid.
    constexpr GregorianDate() = default;
    explicit GregorianDate(const Fields& fields);
    GregorianDate(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int microsecond = 0)
        : GregorianDate(Fields{year, month, day, hour, minute, second, microsecond}) {}

    constexpr bool isValid() const { return m_microseconds != invalid; }
    // All that follows is 0, or empty, for an invalid date.
    Fields getFields() const;
    int getYear() const { return getFields().year; }
    int getMonth() const { return getFields().month; }
    int getDay() const { return getFields().day; }
    int getHour() const { return getFields().hour; }
    int getMinute() const { return getFields().minute; }
    int getSecond() const { return getFields().second; }
    int getMillisecond() const { return getFields().microsecond / 1000; }
    // Of the second: 0 to 999999.
    int getMicrosecond() const { return getFields().microsecond; }
    // 1 is Monday, 7 Sunday.
    int getDayOfWeek() const;
    // From 1 on.
    int getDayOfYear() const;
    // Since 1970, as Clock gives them.
    int64_t getMicroseconds() const { return isValid() ? m_microseconds : 0; }
    // "2024-02-29T13:05:09.042Z", as utcTimeText(): microseconds beyond the milliseconds are left out.
    std::string toString() const;

    // Forward, or back if negative.
    [[nodiscard]] GregorianDate addMicroseconds(int64_t count) const { return added(count, 1); }
    [[nodiscard]] GregorianDate addMilliseconds(int64_t count) const { return added(count, 1000); }
    [[nodiscard]] GregorianDate addSeconds(int64_t count) const { return added(count, perSecond); }
    [[nodiscard]] GregorianDate addMinutes(int64_t count) const { return added(count, perSecond * 60); }
    [[nodiscard]] GregorianDate addHours(int64_t count) const { return added(count, perSecond * 3600); }
    [[nodiscard]] GregorianDate addDays(int64_t count) const { return added(count, perDay); }
    // The same day of another month, or the last of a shorter one.
    [[nodiscard]] GregorianDate addMonths(int64_t count) const;
    [[nodiscard]] GregorianDate addYears(int64_t count) const;
    // From `earlier` to this; negative when it is later, 0 when one of them is invalid.
    int64_t getMicrosecondsSince(const GregorianDate& earlier) const;
    // How often midnight passes between the two.
    int64_t getDaysSince(const GregorianDate& earlier) const;

    friend constexpr bool operator==(const GregorianDate& a, const GregorianDate& b) = default;
    friend constexpr std::strong_ordering operator<=>(const GregorianDate& a, const GregorianDate& b) = default;

private:
    static constexpr int64_t invalid = INT64_MIN, perSecond = 1000000, perDay = 86400 * perSecond;

    GregorianDate added(int64_t count, int64_t unit) const;

    int64_t m_microseconds = invalid; // since 1970
};

} // namespace kiv
