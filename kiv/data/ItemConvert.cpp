// Readers that convert between the types of elements.

#include "kiv/data/Item.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace kiv {

namespace {

constexpr long long greatest = std::numeric_limits<long long>::max();
constexpr long long least = std::numeric_limits<long long>::min();

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view withoutLeadingBlanks(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\n\v\f\r");
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

// Whether a decimal number outside the range of double is too large, not too small: the place of its first digit other
// than zero and its exponent tell.
bool isTooLarge(std::string_view number) {
    long long exponent = 0;
    const size_t mark = number.find_first_of("eE");
    if (mark != std::string_view::npos) {
        std::string_view digits = number.substr(mark + 1);
        const bool negative = digits.starts_with('-');
        if (negative || digits.starts_with('+')) digits.remove_prefix(1);
        if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec != std::errc())
            exponent = greatest / 2;
        exponent = std::min(exponent, greatest / 2);
        if (negative) exponent = -exponent;
    }
    const std::string_view mantissa = number.substr(0, mark);
    const size_t point = std::min(mantissa.find('.'), mantissa.size());
    const size_t first = mantissa.find_first_of("123456789");
    if (first == std::string_view::npos) return false;
    return exponent + static_cast<long long>(point) - static_cast<long long>(first) > 0;
}

// What a standard input stream extracts as a double in the classic locale: blanks, a sign, digits with at most one
// point, and an exponent, which must be whole once its letter is there.
bool parseFloat(std::string_view text, double& out) {
    text = withoutLeadingBlanks(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    size_t end = 0;
    bool digits = false, point = false, exponent = false;
    for (; end < text.size(); ++end) {
        const char c = text[end];
        if (isDigit(c)) {
            digits = true;
        } else if (c == '.' && !point && !exponent) {
            point = true;
        } else if ((c == 'e' || c == 'E') && digits && !exponent) {
            exponent = true;
            if (end + 1 < text.size() && (text[end + 1] == '-' || text[end + 1] == '+')) ++end;
        } else {
            break;
        }
    }
    if (!digits || (exponent && !isDigit(text[end - 1]))) return false;
    const std::string_view number = text.substr(0, end);
    double value = 0;
    const std::errc error = std::from_chars(number.data(), number.data() + number.size(), value).ec;
    if (error == std::errc::result_out_of_range) {
        if (isTooLarge(number)) return false;
        value = 0;
    } else if (error != std::errc()) {
        return false;
    }
    out = negative ? -value : value;
    return true;
}

bool parseInteger(std::string_view text, long long& out) {
    text = withoutLeadingBlanks(text);
    const bool negative = text.starts_with('-');
    if (text.starts_with('+')) text.remove_prefix(1);
    if (text.size() <= (negative ? 1u : 0u) || !isDigit(text[negative ? 1 : 0])) return false;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), out);
    if (result.ec == std::errc::result_out_of_range) out = negative ? least : greatest;
    return true;
}

long long truncate(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0) return greatest;
    if (value < -9223372036854775808.0) return least;
    return static_cast<long long>(value);
}

template <class T>
String shortestText(T value) {
    char text[32];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    return String(text, static_cast<size_t>(result.ptr - text));
}

} // namespace

bool ItemIterator::convertAsBool(bool& success) {
    bool value = false;
    long long integer = 0;
    double number = 0;
    success = true;
    if (asBool(value)) return value;
    if (asInteger(integer)) return integer != 0;
    if (asFloat(number)) return number != 0;
    switch (getType()) {
    case ValueType::String:
    case ValueType::Prefix:
    case ValueType::Buffer:
    case ValueType::SubItem:
    case ValueType::GUID:
        skip();
        return true;
    default:
        success = false;
        return false;
    }
}

long long ItemIterator::convertAsInteger(bool& success) {
    long long integer = 0;
    bool flag = false;
    double number = 0;
    success = true;
    if (asInteger(integer)) return integer;
    if (asBool(flag)) return flag ? 1 : 0;
    if (asFloat(number)) return truncate(number);
    ItemIterator text = *this;
    const char* digits = text.asWeakCStr();
    success = digits && parseInteger(digits, integer);
    if (success) *this = text;
    return success ? integer : 0;
}

double ItemIterator::convertAsFloat(bool& success) {
    double number = 0;
    long long integer = 0;
    bool flag = false;
    success = true;
    if (asFloat(number)) return number;
    if (asInteger(integer)) return static_cast<double>(integer);
    if (asBool(flag)) return flag ? 1.0 : 0.0;
    ItemIterator text = *this;
    const char* digits = text.asWeakCStr();
    success = digits && parseFloat(digits, number);
    if (success) *this = text;
    return success ? number : 0;
}

String ItemIterator::convertAsString(bool& success) {
    String text;
    long long integer = 0;
    double number = 0;
    bool flag = false;
    GUID guid;
    success = true;
    if (asString(text)) return text;
    if (asInteger(integer)) return shortestText(integer);
    if (asFloat(number)) return shortestText(number);
    if (asBool(flag)) return flag ? "true" : "false";
    if (asGUID(guid)) return guid.toString();
    success = false;
    return text;
}

bool ItemIterator::convertAsBool() {
    bool success;
    return convertAsBool(success);
}

long long ItemIterator::convertAsInteger() {
    bool success;
    return convertAsInteger(success);
}

double ItemIterator::convertAsFloat() {
    bool success;
    return convertAsFloat(success);
}

String ItemIterator::convertAsString() {
    bool success;
    return convertAsString(success);
}

} // namespace kiv
