#include "kiv/core/String.h"

#include "kiv/core/Utf8.h"

namespace kiv {

static_assert(String::noCodePoint == internal::noCodePoint);

namespace {

const char* endOf(const std::string& text) {
    return text.data() + text.size();
}

// Moves an iterator of `text` the way `parse` moves a pointer.
template <class Iterator>
uint32_t parseAt(const std::string& text, Iterator& it, uint32_t (*parse)(const char*&, const char*)) {
    const char* const before = text.data() + (String::const_iterator(it) - text.begin());
    const char* after = before;
    const uint32_t codePoint = parse(after, endOf(text));
    it += after - before;
    return codePoint;
}

const char* skip(const char* it, const char* end, size_t count) {
    for (; count > 0 && it != end; --count) internal::lenientDecode(it, end);
    return it;
}

template <class Units>
std::string encoded(Units units) {
    std::string result;
    internal::unicodeToUtf8(units.data(), units.size(), result);
    return result;
}

// Zero-terminated units; null is the empty text.
template <class Unit>
std::string encoded(const Unit* units) {
    size_t count = 0;
    while (units && units[count] != 0) ++count;
    std::string result;
    internal::unicodeToUtf8(units, count, result);
    return result;
}

template <class Result>
Result decoded(const std::string& text) {
    Result result;
    internal::utf8ToUnicode(text.data(), text.size(), result);
    return result;
}

} // namespace

String::String(const std::wstring& text) : StandardText(encoded(std::wstring_view(text))) {}

String::String(const unsigned short* text) : StandardText(encoded(text)) {}

String::String(const unsigned int* text) : StandardText(encoded(text)) {}

String::String(std::u16string_view text) : StandardText(encoded(text)) {}

String::String(std::u32string_view text) : StandardText(encoded(text)) {}

std::u16string String::utf8_to_utf16() const {
    return decoded<std::u16string>(m_text);
}

std::u32string String::utf8_to_unicode() const {
    return decoded<std::u32string>(m_text);
}

std::wstring String::utf8_to_std_wstring() const {
    return decoded<std::wstring>(m_text);
}

bool String::validate() const noexcept {
    return internal::validateUtf8(m_text.data(), m_text.size());
}

uint32_t String::utf8_parse(const char*& it, const char* end) noexcept {
    return it == end ? 0 : internal::lenientDecode(it, end);
}

uint32_t String::utf8_strict_parse(const char*& it, const char* end) noexcept {
    return it == end ? 0 : internal::strictDecode(it, end);
}

uint32_t String::utf8_parse(const_iterator& it) const noexcept {
    return parseAt(m_text, it, utf8_parse);
}

uint32_t String::utf8_parse(iterator& it) noexcept {
    return parseAt(m_text, it, utf8_parse);
}

uint32_t String::utf8_strict_parse(const_iterator& it) const noexcept {
    return parseAt(m_text, it, utf8_strict_parse);
}

uint32_t String::utf8_strict_parse(iterator& it) noexcept {
    return parseAt(m_text, it, utf8_strict_parse);
}

size_t String::utf8_size() const noexcept {
    return internal::countUtf8(m_text.data(), m_text.size());
}

String::const_iterator String::utf8_get_iterator_at(size_t position) const noexcept {
    return m_text.begin() + (skip(m_text.data(), endOf(m_text), position) - m_text.data());
}

uint32_t String::utf8_at(size_t position) const noexcept {
    const char* it = skip(m_text.data(), endOf(m_text), position);
    return it == endOf(m_text) ? noCodePoint : internal::lenientDecode(it, endOf(m_text));
}

String String::utf8_substr(size_t position, size_t count) const {
    const char* const begin = skip(m_text.data(), endOf(m_text), position);
    return String(std::string_view(begin, static_cast<size_t>(skip(begin, endOf(m_text), count) - begin)));
}

String& String::utf8_append(uint32_t codePoint) {
    if (codePoint == noCodePoint) return *this;
    char bytes[4];
    unsigned size = internal::encodeUtf8(codePoint, bytes);
    if (size == 0) size = internal::encodeUtf8(internal::replacementCodePoint, bytes);
    m_text.append(bytes, size);
    return *this;
}

String String::utf8_fix() const {
    String result;
    internal::repairUtf8(m_text.data(), m_text.size(), result.m_text);
    return result;
}

String String::ascii_fix() const {
    String result;
    internal::asciiFix(m_text.data(), m_text.size(), internal::ControlCodes::Keep, result.m_text);
    return result;
}

String String::ascii_fix_remove_controlcodes() const {
    String result;
    internal::asciiFix(m_text.data(), m_text.size(), internal::ControlCodes::Remove, result.m_text);
    return result;
}

} // namespace kiv
