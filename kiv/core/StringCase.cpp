#include "kiv/core/String.h"

#include "kiv/core/Utf8.h"

#include <algorithm>
#include <utf8proc.h>

// What needs the properties of Unicode's characters: case, writing direction, and the orders people expect.

namespace kiv {

namespace {

bool isDigit(uint32_t codePoint) {
    return codePoint >= '0' && codePoint <= '9';
}

uint32_t lowerCase(uint32_t codePoint) {
    if (codePoint < 0x80) return codePoint >= 'A' && codePoint <= 'Z' ? codePoint + 0x20 : codePoint;
    return static_cast<uint32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(codePoint)));
}

uint32_t upperCase(uint32_t codePoint) {
    if (codePoint < 0x80) return codePoint >= 'a' && codePoint <= 'z' ? codePoint - 0x20 : codePoint;
    return static_cast<uint32_t>(utf8proc_toupper(static_cast<utf8proc_int32_t>(codePoint)));
}

uint32_t titleCase(uint32_t codePoint) {
    return static_cast<uint32_t>(utf8proc_totitle(static_cast<utf8proc_int32_t>(codePoint)));
}

String mapped(std::string_view text, uint32_t (*map)(uint32_t)) {
    String result;
    result.reserve(text.size());
    for (const char *it = text.data(), *const end = it + text.size(); it != end;)
        result.utf8_append(map(internal::lenientDecode(it, end)));
    return result;
}

enum class Direction { Neutral, LeftToRight, RightToLeft };

Direction directionOf(uint32_t codePoint) {
    switch (utf8proc_get_property(static_cast<utf8proc_int32_t>(codePoint))->bidi_class) {
    case UTF8PROC_BIDI_CLASS_L:
        return Direction::LeftToRight;
    case UTF8PROC_BIDI_CLASS_R:
    case UTF8PROC_BIDI_CLASS_AL:
        return Direction::RightToLeft;
    default:
        return Direction::Neutral;
    }
}

// Takes the run of digits at `it` and returns its digits without leading zeros: texts of any length have a value.
std::string_view takeNumber(const char*& it, const char* end) {
    const char* const last = std::find_if_not(it, end, isDigit);
    const char* const first = std::find_if(it, last, [](char c) { return c != '0'; });
    it = last;
    return {first, static_cast<size_t>(last - first)};
}

int compareNumbers(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

} // namespace

String String::utf8_lowercase() const {
    return mapped(m_text, lowerCase);
}

String String::utf8_uppercase() const {
    return mapped(m_text, upperCase);
}

String String::utf8_capitalize() const {
    bool first = true;
    String result;
    result.reserve(m_text.size());
    for (const char *it = m_text.data(), *const end = it + m_text.size(); it != end; first = false) {
        const uint32_t codePoint = internal::lenientDecode(it, end);
        result.utf8_append(first ? titleCase(codePoint) : codePoint);
    }
    return result;
}

bool String::utf8_isnumeric() const noexcept {
    return !empty() && std::all_of(begin(), end(), isDigit);
}

bool String::utf8_contains_special_characters() const noexcept {
    return !std::all_of(begin(), end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

unsigned String::utf8_rtl_flags() const noexcept {
    unsigned flags = 0;
    for (const char *it = m_text.data(), *const end = it + m_text.size(); it != end;) {
        const Direction direction = directionOf(internal::lenientDecode(it, end));
        if (direction == Direction::LeftToRight) flags |= 1;
        if (direction == Direction::RightToLeft) flags |= flags == 0 ? 2 | 4 : 2;
    }
    return flags;
}

// A text counts as a sequence of numbers and lower-case code points, compared one by one; any number sorts where the
// ASCII digits are. Each element has its fixed place in one order, so the whole is transitive; what is still equal then
// differs in leading zeros, case or broken bytes, and the bytes decide.
int String::natural_compare(const char* a, const char* b) noexcept {
    const TextArg textA = a, textB = b;
    const char *itA = textA.data(), *const endA = itA + textA.size();
    const char *itB = textB.data(), *const endB = itB + textB.size();
    while (itA != endA && itB != endB) {
        int order;
        if (isDigit(static_cast<unsigned char>(*itA)) && isDigit(static_cast<unsigned char>(*itB))) {
            const std::string_view number = takeNumber(itA, endA);
            order = compareNumbers(number, takeNumber(itB, endB));
        } else {
            const uint32_t codePointA = lowerCase(internal::lenientDecode(itA, endA));
            const uint32_t codePointB = lowerCase(internal::lenientDecode(itB, endB));
            order = codePointA == codePointB ? 0 : codePointA < codePointB ? -1 : 1;
        }
        if (order != 0) return order < 0 ? -1 : 1;
    }
    if (itA != endA) return 1;
    if (itB != endB) return -1;
    const int order = textA.compare(textB);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

} // namespace kiv
