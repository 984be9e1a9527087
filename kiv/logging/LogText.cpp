#include "kiv/logging/LogText.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <locale>
#include <ostream>
#include <streambuf>

namespace kiv::internal {
namespace {

template <class... Arguments>
void appendChars(LogText& text, Arguments... arguments) {
    char digits[64];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof(digits), arguments...);
    text.append({digits, static_cast<size_t>(result.ptr - digits)});
}

// What an output stream shows without being told otherwise.
constexpr int streamPrecision = 6;

class AppendingBuffer : public std::streambuf {
public:
    explicit AppendingBuffer(LogText& text) : m_text(text) {}

protected:
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
        const char c = traits_type::to_char_type(character);
        m_text.append({&c, 1});
        return character;
    }
    std::streamsize xsputn(const char* characters, std::streamsize count) override {
        m_text.append({characters, static_cast<size_t>(count)});
        return count;
    }

private:
    LogText& m_text;
};

} // namespace

void LogText::appendInteger(long long value) {
    appendChars(*this, value);
}

void LogText::appendUnsigned(unsigned long long value) {
    appendChars(*this, value);
}

void LogText::appendFloat(double value) {
    appendChars(*this, value, std::chars_format::general, streamPrecision);
}

void LogText::appendFloat(long double value) {
    appendChars(*this, value, std::chars_format::general, streamPrecision);
}

void LogText::appendPrinted(void (*print)(std::ostream&, const void*), const void* value) {
    AppendingBuffer buffer(*this);
    std::ostream stream(&buffer);
    stream.imbue(std::locale::classic());
    print(stream, value);
}

std::string_view LogText::getLine(std::string_view stamp) {
    assert(stamp.size() <= stampRoom);
    char* start = m_data + stampRoom - stamp.size();
    std::copy(stamp.begin(), stamp.end(), start);
    m_data[m_size] = '\n';
    return {start, static_cast<size_t>(m_data + m_size + 1 - start)};
}

void LogText::grow(size_t extra) {
    const size_t capacity = 2 * m_capacity + extra;
    char* data = new char[capacity];
    std::memcpy(data, m_data, m_size);
    if (m_data != m_inline) delete[] m_data;
    m_data = data;
    m_capacity = capacity;
}

} // namespace kiv::internal
