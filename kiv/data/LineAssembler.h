#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kiv::internal {

// Makes lines of a byte stream that comes in pieces. A line ends with LF or CR LF, which are not part of it. Lines that
// lie within one piece are not copied. Lines above the limit are dropped as they come, so that memory stays bounded.
class KIV_API LineAssembler {
public:
    // What becomes of the beginning of a line at the end of a piece: it is copied, or it stays in the piece, and the
    // next piece begins with it.
    enum class Rest { Copied, Left };

    explicit LineAssembler(size_t limit) : m_limit(limit) {}

    // The next complete line of the stream that goes on with `bytes`, which loses what was taken from it. False when
    // there is none yet. The line is valid until the next call and as long as the bytes are.
    bool next(std::string_view& bytes, std::string_view& line, Rest rest = Rest::Copied);
    // What stands behind the last line end, once no more bytes come; false when that is nothing.
    bool finish(std::string_view& line);
    // Begins a new stream.
    void clear();
    // The number of lines dropped since the last call.
    unsigned takeDropped();

private:
    bool trim(std::string_view& line);

    const size_t m_limit;
    std::string m_begun;    // of a line that reaches over several pieces
    size_t m_scanned = 0;   // bytes of the piece to come that hold no line end
    bool m_isGiven = false; // what has begun was handed out as a line
    bool m_isDropping = false;
    unsigned m_dropped = 0;
};

} // namespace kiv::internal
