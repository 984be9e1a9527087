#include "kiv/logging/MessageStream.h"

#include "kiv/logging/LogBackend.h"

namespace kiv::logging {
namespace {

std::string_view tagOf(int level) {
    switch (level) {
    case 0:
        return "[VERBOSE] ";
    case 2:
        return "[WARNING] ";
    case 3:
        return "[ERROR] ";
    case 4:
        return "[ASSERT] ";
    default:
        return "";
    }
}

} // namespace

std::atomic<bool> g_hideTimeInConsole{false};
std::atomic<bool> g_hideVerboseOutputInConsole{false};
std::atomic<bool> g_isCompactLogEnabled{false};

MessageStream::MessageStream(int level, int flags)
    : m_level(level), m_flags(flags), m_isMuted(level == 0 && LogBackend::isSeenByNobody(flags)) {
    m_text.append(tagOf(level));
}

MessageStream::~MessageStream() {
    if (!m_isMuted) LogBackend::publish(m_level, m_flags, m_text);
}

MessageStream& MessageStream::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    if (m_isMuted) return *this;
    m_text.appendPrinted(
        [](std::ostream& stream, const void* f) { (*static_cast<std::ostream& (*const*)(std::ostream&)>(f))(stream); },
        &manipulator);
    return *this;
}

} // namespace kiv::logging
