#pragma once

#include "kiv/platform/Compiler.h"
#include <ostream>
#include <streambuf>
#include <string>

namespace kiv {
namespace internal {

class KIV_API LogLineBuffer : public std::streambuf {
public:
    explicit LogLineBuffer(int level) : m_level(level) {}
    ~LogLineBuffer() override;

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* characters, std::streamsize count) override;

private:
    void append(std::string_view text);

    const int m_level;
    std::string m_line;
};

} // namespace internal

namespace logging {

// An output stream that publishes every line it receives as one message of its level, without the line feed. Text that
// no line feed ends stays buffered and is dropped with the stream. One thread at a time.
class KIV_API LogOStream : public std::ostream {
public:
    explicit LogOStream(int level);
    LogOStream(const LogOStream&) = delete;
    LogOStream& operator=(const LogOStream&) = delete;
    ~LogOStream() override;

private:
    kiv::internal::LogLineBuffer m_buffer;
};

} // namespace logging
} // namespace kiv
