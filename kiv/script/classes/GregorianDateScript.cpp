// The script class kiv.GregorianDate.

#include "kiv/script/classes/ValueClass.h"

namespace kivSq {
namespace {

using internal::Int32;
using kiv::GregorianDate;

std::optional<GregorianDate> fromString(std::string_view text) {
    GregorianDate date;
    if (!GregorianDate::fromString(text, date)) return {};
    return date;
}

} // namespace

bool Access<GregorianDate>::get(SQVM* v, int64_t index, GregorianDate& out) {
    return internal::getCopy(v, index, out);
}

bool Access<GregorianDate>::push(SQVM* v, const GregorianDate& value) {
    return internal::pushBound<&internal::bindGregorianDate>(v, value);
}

void internal::bindGregorianDate(const Object& table) {
    if (AdapterData::of<GregorianDate>().isInitialized()) return;
    using Date = GregorianDate;
    Class<Date> date(table, "GregorianDate",
                     Constructor<void(), void(Int32, Int32, Int32), void(Int32, Int32, Int32, Int32, Int32, Int32),
                                 void(Int32, Int32, Int32, Int32, Int32, Int32, Int32)>());
    addValueMethods(date);
    date.staticMethod("now", &Date::now)
        .staticMethod("fromMicroseconds", &Date::fromMicroseconds)
        .staticMethod("fromString", &fromString)
        .staticMethod(
            "isLeapYear", +[](Int32 year) { return Date::isLeapYear(year); })
        .staticMethod(
            "getDaysInMonth", +[](Int32 year, Int32 month) { return Date::getDaysInMonth(year, month); })
        .method("_cmp", &compareValues<Date>)
        .method("isValid", &Date::isValid)
        .method("getYear", &Date::getYear)
        .method("getMonth", &Date::getMonth)
        .method("getDay", &Date::getDay)
        .method("getHour", &Date::getHour)
        .method("getMinute", &Date::getMinute)
        .method("getSecond", &Date::getSecond)
        .method("getMillisecond", &Date::getMillisecond)
        .method("getMicrosecond", &Date::getMicrosecond)
        .method("getDayOfWeek", &Date::getDayOfWeek)
        .method("getDayOfYear", &Date::getDayOfYear)
        .method("getMicroseconds", &Date::getMicroseconds)
        .method("addMicroseconds", &Date::addMicroseconds)
        .method("addMilliseconds", &Date::addMilliseconds)
        .method("addSeconds", &Date::addSeconds)
        .method("addMinutes", &Date::addMinutes)
        .method("addHours", &Date::addHours)
        .method("addDays", &Date::addDays)
        .method("addMonths", &Date::addMonths)
        .method("addYears", &Date::addYears)
        .method("getMicrosecondsSince", &Date::getMicrosecondsSince)
        .method("getDaysSince", &Date::getDaysSince);
}

} // namespace kivSq
