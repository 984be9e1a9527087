#include "kiv/core/GregorianDate.h"

#include "kiv/core/Clock.h"

#include <algorithm>
#include <chrono>

namespace kiv {

namespace {

namespace chrono = std::chrono;

constexpr int lastYear = 9999;

constexpr chrono::sys_days startOfYear(int year) {
    return chrono::year(year) / chrono::January / 1;
}

constexpr int64_t microseconds(chrono::sys_days day) {
    return chrono::sys_time<chrono::microseconds>(day).time_since_epoch().count();
}

constexpr int64_t firstMoment = microseconds(startOfYear(-lastYear));
constexpr int64_t lastMoment = microseconds(startOfYear(lastYear + 1)) - 1;

chrono::sys_days dayOf(int64_t microseconds) {
    return chrono::floor<chrono::days>(chrono::sys_time<chrono::microseconds>(chrono::microseconds(microseconds)));
}

bool isWithin(int number, int end) {
    return 0 <= number && number < end;
}

bool isDay(int year, int month, int day) {
    return 1 <= day && day <= GregorianDate::getDaysInMonth(year, month);
}

// Takes a text apart from its start on; what is not there leaves it unchanged.
class Reader {
public:
    explicit Reader(std::string_view text) : m_rest(text) {}

    bool isAtEnd() const { return m_rest.empty(); }
    // The character, or 0.
    char take(std::string_view oneOf) {
        if (m_rest.empty() || oneOf.find(m_rest.front()) == oneOf.npos) return 0;
        const char taken = m_rest.front();
        m_rest.remove_prefix(1);
        return taken;
    }
    bool number(unsigned digits, int& out) {
        if (m_rest.size() < digits) return false;
        int value = 0;
        for (const char digit : m_rest.substr(0, digits)) {
            if (digit < '0' || '9' < digit) return false;
            value = value * 10 + (digit - '0');
        }
        m_rest.remove_prefix(digits);
        out = value;
        return true;
    }

private:
    std::string_view m_rest;
};

bool readDay(Reader& reader, GregorianDate::Fields& fields) {
    const char sign = reader.take("+-");
    if (!reader.number(4, fields.year)) return false;
    if (sign == '-') fields.year = -fields.year;
    return reader.take("-") && reader.number(2, fields.month) && reader.take("-") && reader.number(2, fields.day);
}

bool readFraction(Reader& reader, int& microsecond) {
    int digit = 0, unit = 100000;
    if (!reader.number(1, digit)) return false;
    do {
        microsecond += digit * unit;
        unit /= 10;
    } while (reader.number(1, digit));
    return true;
}

bool readTime(Reader& reader, GregorianDate::Fields& fields) {
    if (!reader.number(2, fields.hour) || !reader.take(":") || !reader.number(2, fields.minute)) return false;
    if (!reader.take(":")) return true;
    return reader.number(2, fields.second) && (!reader.take(".,") || readFraction(reader, fields.microsecond));
}

// "Z", "+hh:mm", "+hhmm", "+hh" or nothing.
bool readZone(Reader& reader, int& minutesAhead) {
    if (reader.isAtEnd() || reader.take("Zz")) return true;
    const char sign = reader.take("+-");
    int hours = 0, minutes = 0;
    if (!sign || !reader.number(2, hours)) return false;
    if ((reader.take(":") || !reader.isAtEnd()) && !reader.number(2, minutes)) return false;
    minutesAhead = (hours * 60 + minutes) * (sign == '-' ? -1 : 1);
    return hours < 24 && minutes < 60;
}

} // namespace

GregorianDate GregorianDate::now() {
    return fromMicroseconds(Clock::current().getUtcMicroseconds());
}

GregorianDate GregorianDate::fromMicroseconds(int64_t since1970) {
    GregorianDate date;
    if (firstMoment <= since1970 && since1970 <= lastMoment) date.m_microseconds = since1970;
    return date;
}

bool GregorianDate::fromString(std::string_view text, GregorianDate& out) {
    Reader reader(text);
    Fields fields;
    int minutesAhead = 0;
    if (!readDay(reader, fields)) return false;
    if (reader.take("Tt ") && !(readTime(reader, fields) && readZone(reader, minutesAhead))) return false;
    const GregorianDate date = GregorianDate(fields).addMinutes(-minutesAhead);
    if (!reader.isAtEnd() || !date.isValid()) return false;
    out = date;
    return true;
}

bool GregorianDate::isLeapYear(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int GregorianDate::getDaysInMonth(int year, int month) {
    if (month < 1 || 12 < month) return 0;
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[month - 1] + (month == 2 && isLeapYear(year));
}

GregorianDate::GregorianDate(const Fields& fields) {
    if (fields.year < -lastYear || lastYear < fields.year || !isDay(fields.year, fields.month, fields.day)) return;
    if (!isWithin(fields.hour, 24) || !isWithin(fields.minute, 60) || !isWithin(fields.second, 60)) return;
    if (!isWithin(fields.microsecond, perSecond)) return;
    const chrono::sys_days day = chrono::year(fields.year) / fields.month / fields.day;
    const int64_t second = (int64_t{fields.hour} * 60 + fields.minute) * 60 + fields.second;
    m_microseconds = microseconds(day) + second * perSecond + fields.microsecond;
}

GregorianDate::Fields GregorianDate::getFields() const {
    if (!isValid()) return {};
    const chrono::sys_days day = dayOf(m_microseconds);
    const chrono::year_month_day date(day);
    const int64_t inDay = m_microseconds - microseconds(day);
    const int second = static_cast<int>(inDay / perSecond);
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            second / 3600,
            second / 60 % 60,
            second % 60,
            static_cast<int>(inDay % perSecond)};
}

int GregorianDate::getDayOfWeek() const {
    return isValid() ? static_cast<int>(chrono::weekday(dayOf(m_microseconds)).iso_encoding()) : 0;
}

int GregorianDate::getDayOfYear() const {
    if (!isValid()) return 0;
    return static_cast<int>((dayOf(m_microseconds) - startOfYear(getYear())).count()) + 1;
}

std::string GregorianDate::toString() const {
    return isValid() ? utcTimeText(m_microseconds) : std::string();
}

GregorianDate GregorianDate::addMonths(int64_t count) const {
    constexpr int64_t most = 12 * 2 * (lastYear + 1);
    if (!isValid() || count < -most || most < count) return {};
    Fields fields = getFields();
    const int64_t month = fields.year * 12 + (fields.month - 1) + count;
    const int64_t year = month / 12 - (month % 12 < 0);
    fields.year = static_cast<int>(year);
    fields.month = static_cast<int>(month - year * 12) + 1;
    fields.day = std::min(fields.day, getDaysInMonth(fields.year, fields.month));
    return GregorianDate(fields);
}

GregorianDate GregorianDate::addYears(int64_t count) const {
    // So that it can be multiplied.
    return -30000 < count && count < 30000 ? addMonths(count * 12) : GregorianDate();
}

int64_t GregorianDate::getMicrosecondsSince(const GregorianDate& earlier) const {
    return isValid() && earlier.isValid() ? m_microseconds - earlier.m_microseconds : 0;
}

int64_t GregorianDate::getDaysSince(const GregorianDate& earlier) const {
    return isValid() && earlier.isValid() ? (dayOf(m_microseconds) - dayOf(earlier.m_microseconds)).count() : 0;
}

GregorianDate GregorianDate::added(int64_t count, int64_t unit) const {
    constexpr int64_t range = lastMoment - firstMoment;
    if (!isValid() || count > range / unit || count < -range / unit) return {};
    return fromMicroseconds(m_microseconds + count * unit);
}

} // namespace kiv
