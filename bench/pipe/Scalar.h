#pragma once

#include "Pipe.h"

#include <array>

// Hexadecimal digits by tables, one byte at a time.
namespace bench {

inline constexpr auto digitValues = [] {
    std::array<int8_t, 256> values{};
    values.fill(-1);
    for (int i = 0; i < 16; ++i) values[static_cast<uint8_t>("0123456789ABCDEF"[i])] = static_cast<int8_t>(i);
    return values;
}();

// The payload of a line; nothing when it is no packet.
inline std::vector<uint8_t> decodeScalar(const char* line, const char* end) {
    if (end - line < 24 || memcmp(line, lineBegin.data(), lineBegin.size()) != 0 || end[-1] != ']') return {};
    line += lineBegin.size() + 2 * headerSize;
    --end;
    std::vector<uint8_t> bytes(static_cast<size_t>(end - line) / 2);
    int invalid = 0;
    for (uint8_t& byte : bytes) {
        const int high = digitValues[static_cast<uint8_t>(line[0])], low = digitValues[static_cast<uint8_t>(line[1])];
        invalid |= high | low;
        byte = static_cast<uint8_t>(high << 4 | low);
        line += 2;
    }
    return invalid < 0 ? std::vector<uint8_t>() : bytes;
}

} // namespace bench
