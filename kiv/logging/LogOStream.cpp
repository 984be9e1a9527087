#include "kiv/logging/LogOStream.h"

#include "kiv/logging/MessageStream.h"
#include <locale>

namespace kiv {
namespace internal {

LogLineBuffer::~LogLineBuffer() = default;

LogLineBuffer::int_type LogLineBuffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char c = traits_type::to_char_type(character);
    append({&c, 1});
    return character;
}

std::streamsize LogLineBuffer::xsputn(const char* characters, std::streamsize count) {
    append({characters, static_cast<size_t>(count)});
    return count;
}

void LogLineBuffer::append(std::string_view text) {
    for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        m_line += text.substr(0, end);
        logging::MessageStream(m_level, logging::StoredFlag) << m_line;
        m_line.clear();
    }
    m_line += text;
}

} // namespace internal

namespace logging {

LogOStream::LogOStream(int level) : std::ostream(nullptr), m_buffer(level) {
    rdbuf(&m_buffer);
    imbue(std::locale::classic());
}

LogOStream::~LogOStream() = default;

} // namespace logging
} // namespace kiv
