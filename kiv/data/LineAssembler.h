#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kiv::internal {

// Makes lines of a byte stream that comes in pieces. A line ends with LF or CR LF, which are not part of it. Lines
// above the limit are dropped as they come, so that memory stays bounded.
class KIV_API LineAssembler {
public:
    explicit LineAssembler(size_t limit) : m_limit(limit) {}

    void append(std::string_view bytes);
    // The next complete line; false when there is none yet. It is valid until the next append().
    bool next(std::string_view& line);
    // What stands behind the last line end, once no more bytes come; false when that is nothing.
    bool finish(std::string_view& line);
    // The number of lines dropped since the last call.
    unsigned takeDropped();

private:
    bool take(size_t end, size_t behind, std::string_view& line);

    const size_t m_limit;
    std::string m_bytes;
    size_t m_begin = 0;   // of the first line that was not taken yet
    size_t m_scanned = 0; // no line end before
    bool m_isDropping = false;
    unsigned m_dropped = 0;
};

} // namespace kiv::internal
