#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kiv::logging {

// One message that waits for the log database.
class LogMessage {
public:
    // `utcMicroseconds` since 1970-01-01T00:00:00Z; null is the empty text.
    LogMessage(int64_t utcMicroseconds, const char* text)
        : m_utcMicroseconds(utcMicroseconds), m_text(text ? text : "") {}
    // The text may hold zero characters.
    LogMessage(int64_t utcMicroseconds, std::string_view text) : m_utcMicroseconds(utcMicroseconds), m_text(text) {}

    int64_t getTime() const { return m_utcMicroseconds; }
    const std::string& getText() const { return m_text; }

private:
    int64_t m_utcMicroseconds;
    std::string m_text;
};

} // namespace kiv::logging
