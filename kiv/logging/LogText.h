#pragma once

#include "kiv/platform/Compiler.h"
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string_view>

namespace kiv::internal {

// The growing text of one log message. Lines of usual length fit the object itself, and room is kept in front of the
// text, so that the console's time stamp is put before it without copying.
class KIV_API LogText {
public:
    static constexpr size_t stampRoom = 32;

    LogText() = default;
    LogText(const LogText&) = delete;
    LogText& operator=(const LogText&) = delete;
    ~LogText() {
        if (m_data != m_inline) delete[] m_data;
    }

    void append(std::string_view text) {
        if (text.size() >= m_capacity - m_size) grow(text.size());
        if (!text.empty()) std::memcpy(m_data + m_size, text.data(), text.size());
        m_size += text.size();
    }
    // Numbers have the form an output stream of the classic locale gives them.
    void appendInteger(long long value);
    void appendUnsigned(unsigned long long value);
    void appendFloat(double value);
    void appendFloat(long double value);
    // Appends what `print` writes to the stream it is given.
    void appendPrinted(void (*print)(std::ostream& stream, const void* value), const void* value);

    std::string_view getText() const { return {m_data + stampRoom, m_size - stampRoom}; }
    // Zero-terminated; valid until the next change.
    const char* getCText() {
        m_data[m_size] = '\0';
        return m_data + stampRoom;
    }
    // Stamp, text and a line feed in one piece; valid until the next change. Requires: stamp.size() <= stampRoom.
    std::string_view getLine(std::string_view stamp);

private:
    // Makes room for `extra` characters and the one behind the text.
    void grow(size_t extra);

    size_t m_size = stampRoom;
    size_t m_capacity = sizeof(m_inline);
    char* m_data = m_inline;
    char m_inline[512];
};

} // namespace kiv::internal
