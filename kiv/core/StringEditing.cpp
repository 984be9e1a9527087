#include "kiv/core/String.h"

#include <algorithm>

namespace kiv {

namespace {

String trimmed(std::string_view text, std::string_view unwanted) {
    const size_t first = text.find_first_not_of(unwanted);
    if (first == std::string_view::npos) return {};
    return String(text.substr(first, text.find_last_not_of(unwanted) - first + 1));
}

Vector<String> pieces(std::string_view text, std::string_view separator) {
    Vector<String> result;
    if (text.empty()) return result;
    size_t begin = 0;
    if (!separator.empty()) {
        for (size_t end; (end = text.find(separator, begin)) != std::string_view::npos; begin = end + separator.size())
            result.emplace_back(text.substr(begin, end - begin));
    }
    result.emplace_back(text.substr(begin));
    return result;
}

} // namespace

String String::replace_all_copy(TextArg from, TextArg to) const {
    const std::string_view text = m_text;
    String result;
    size_t begin = 0;
    if (!from.empty()) {
        for (size_t end; (end = text.find(from, begin)) != npos; begin = end + from.size())
            result.append(text.substr(begin, end - begin)).append(to);
    }
    return result.append(text.substr(begin));
}

String String::replace_all_copy(char from, char to) const {
    String result = *this;
    result.replace_all(from, to);
    return result;
}

// Works on a copy, since `from` and `to` may be parts of this text; linear, which replacing one by one is not.
String& String::replace_all(TextArg from, TextArg to) {
    if (!from.empty() && contains(from)) *this = replace_all_copy(from, to);
    return *this;
}

String& String::replace_all(char from, char to) noexcept {
    std::replace(m_text.begin(), m_text.end(), from, to);
    return *this;
}

String& String::append_separator(TextArg separator) {
    return empty() || ends_with(separator) ? *this : append(separator);
}

String& String::append_separator(char separator) {
    return append_separator(std::string_view(&separator, 1));
}

String String::trim_spaces() const {
    return trimmed(m_text, " \t");
}

String String::trim_spaces_newlines() const {
    return trimmed(m_text, " \t\r\n");
}

String String::trim_leading_zeros() const {
    return String(view().substr(std::min(m_text.find_first_not_of('0'), m_text.size())));
}

Vector<String> String::split(char separator) const {
    return pieces(m_text, {&separator, 1});
}

Vector<String> String::splitByString(TextArg separator) const {
    return pieces(m_text, separator);
}

} // namespace kiv
