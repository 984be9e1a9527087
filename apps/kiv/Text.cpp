#include "Text.h"

#include "kiv/core/String.h"
#include "kiv/platform/Console.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>

namespace kiv::app {

namespace {

constexpr size_t columnsBefore = 30, columnsBehind = 40;
constexpr size_t largestPiece = 1 << 16;

bool isControl(uint32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

// The next code point of [it, end) as it may be shown.
String shownCodePoint(const char*& it, const char* end) {
    uint32_t codePoint = String::utf8_parse(it, end);
    if (isControl(codePoint)) codePoint = codePoint == '\t' ? ' ' : 0xFFFD;
    return String().utf8_append(codePoint);
}

} // namespace

Place placeOf(std::string_view text, size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const size_t lineStart = before.rfind('\n') + 1; // 0 where there is no line feed
    Place place;
    place.line += static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
    place.column += String(before.substr(lineStart)).utf8_size();
    return place;
}

std::string excerptOf(std::string_view text, size_t offset) {
    offset = std::min(offset, text.size());
    const size_t lineStart = text.substr(0, offset).rfind('\n') + 1;
    const size_t lineEnd = std::min(text.find('\n', offset), text.size());
    // A code point has four bytes at most, and a window that begins inside of one does not begin on screen.
    const size_t windowStart = std::max(lineStart, offset - std::min(offset, columnsBefore * 4 + 3));

    const char *it = text.data() + windowStart, *const at = text.data() + offset;
    std::deque<String> before;
    while (it < at) {
        before.push_back(shownCodePoint(it, at));
        if (before.size() > columnsBefore) before.pop_front();
    }
    std::string excerpt = "    ";
    for (const String& character : before) excerpt += character.view();
    const char* const end = text.data() + lineEnd;
    for (size_t i = 0; i < columnsBehind && it < end; ++i) {
        if (it + 1 == end && *it == '\r') break;
        excerpt += shownCodePoint(it, end).view();
    }
    return fmt::format("{}\n    {:{}}^\n", excerpt, "", before.size());
}

std::string withoutControlsInJSON(std::string_view json, bool keepLineFeeds) {
    std::string out;
    out.reserve(json.size());
    for (const char *it = json.data(), *const end = it + json.size(); it < end;) {
        const char* const start = it;
        const uint32_t codePoint = String::utf8_parse(it, end);
        if (isControl(codePoint) && !(keepLineFeeds && codePoint == '\n')) {
            out += fmt::format("\\u{:04x}", codePoint);
        } else {
            out.append(start, it);
        }
    }
    return out;
}

std::string withoutControls(std::string_view text) {
    return String(text).utf8_escape_controlcode().to_std_string();
}

void Output::write(std::string_view text) {
    m_waiting += text;
    if (m_waiting.size() >= largestPiece) flush();
}

void Output::flush() {
    if (m_waiting.empty()) return;
    m_isGood = internal::writeStandardOutput(m_waiting) && m_isGood;
    m_waiting.clear();
}

} // namespace kiv::app
