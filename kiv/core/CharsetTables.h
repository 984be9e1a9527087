#pragma once

#include "kiv/core/Utf8.h"

#include <array>
#include <cstdint>
#include <string_view>

// Charsets of one byte a character that extend ASCII: the code points of the bytes 0x80 to 0xFF, U+FFFD for none.

namespace kiv::internal {

using HighHalf = std::array<uint16_t, 128>;

constexpr HighHalf asciiHalf() {
    HighHalf half{};
    half.fill(replacementCodePoint);
    return half;
}

constexpr HighHalf latin1Half() {
    HighHalf half{};
    for (uint16_t i = 0; i < 128; ++i) half[i] = static_cast<uint16_t>(0x80 + i);
    return half;
}

constexpr HighHalf windows1252Half() {
    HighHalf half = latin1Half();
    for (size_t i = 0; i < 32; ++i) half[i] = windows1252Controls[i];
    return half;
}

constexpr HighHalf latin9Half() {
    HighHalf half = latin1Half();
    half[0xA4 - 0x80] = 0x20AC;
    half[0xA6 - 0x80] = 0x0160;
    half[0xA8 - 0x80] = 0x0161;
    half[0xB4 - 0x80] = 0x017D;
    half[0xB8 - 0x80] = 0x017E;
    half[0xBC - 0x80] = 0x0152;
    half[0xBD - 0x80] = 0x0153;
    half[0xBE - 0x80] = 0x0178;
    return half;
}

constexpr HighHalf thaiHalf() {
    HighHalf half = latin1Half();
    for (uint16_t i = 0xA1; i <= 0xFF; ++i) {
        const bool isThai = i <= 0xDA || (i >= 0xDF && i <= 0xFB);
        half[i - 0x80u] = static_cast<uint16_t>(isThai ? 0x0E01 + (i - 0xA1) : replacementCodePoint);
    }
    return half;
}

// The bytes from 0xA0 on; those below are the control codes of the same value.
constexpr HighHalf isoHalf(const char16_t (&graphic)[97]) {
    HighHalf half = latin1Half();
    for (size_t i = 0; i < 96; ++i) half[32 + i] = static_cast<uint16_t>(graphic[i]);
    return half;
}

inline constexpr HighHalf ascii = asciiHalf();
inline constexpr HighHalf latin1 = latin1Half();
inline constexpr HighHalf latin9 = latin9Half();
inline constexpr HighHalf windows1252 = windows1252Half();
inline constexpr HighHalf thai = thaiHalf();

inline constexpr HighHalf latin6 =
    isoHalf(u"\u00A0\u0104\u0112\u0122\u012A\u0128\u0136\u00A7\u013B\u0110\u0160\u0166\u017D\u00AD\u016A\u014A"
            u"\u00B0\u0105\u0113\u0123\u012B\u0129\u0137\u00B7\u013C\u0111\u0161\u0167\u017E\u2015\u016B\u014B"
            u"\u0100\u00C1\u00C2\u00C3\u00C4\u00C5\u00C6\u012E\u010C\u00C9\u0118\u00CB\u0116\u00CD\u00CE\u00CF"
            u"\u00D0\u0145\u014C\u00D3\u00D4\u00D5\u00D6\u0168\u00D8\u0172\u00DA\u00DB\u00DC\u00DD\u00DE\u00DF"
            u"\u0101\u00E1\u00E2\u00E3\u00E4\u00E5\u00E6\u012F\u010D\u00E9\u0119\u00EB\u0117\u00ED\u00EE\u00EF"
            u"\u00F0\u0146\u014D\u00F3\u00F4\u00F5\u00F6\u0169\u00F8\u0173\u00FA\u00FB\u00FC\u00FD\u00FE\u0138");

inline constexpr HighHalf latin8 =
    isoHalf(u"\u00A0\u1E02\u1E03\u00A3\u010A\u010B\u1E0A\u00A7\u1E80\u00A9\u1E82\u1E0B\u1EF2\u00AD\u00AE\u0178"
            u"\u1E1E\u1E1F\u0120\u0121\u1E40\u1E41\u00B6\u1E56\u1E81\u1E57\u1E83\u1E60\u1EF3\u1E84\u1E85\u1E61"
            u"\u00C0\u00C1\u00C2\u00C3\u00C4\u00C5\u00C6\u00C7\u00C8\u00C9\u00CA\u00CB\u00CC\u00CD\u00CE\u00CF"
            u"\u0174\u00D1\u00D2\u00D3\u00D4\u00D5\u00D6\u1E6A\u00D8\u00D9\u00DA\u00DB\u00DC\u00DD\u0176\u00DF"
            u"\u00E0\u00E1\u00E2\u00E3\u00E4\u00E5\u00E6\u00E7\u00E8\u00E9\u00EA\u00EB\u00EC\u00ED\u00EE\u00EF"
            u"\u0175\u00F1\u00F2\u00F3\u00F4\u00F5\u00F6\u1E6B\u00F8\u00F9\u00FA\u00FB\u00FC\u00FD\u0177\u00FF");

inline constexpr HighHalf latin10 =
    isoHalf(u"\u00A0\u0104\u0105\u0141\u20AC\u201E\u0160\u00A7\u0161\u00A9\u0218\u00AB\u0179\u00AD\u017A\u017B"
            u"\u00B0\u00B1\u010C\u0142\u017D\u201D\u00B6\u00B7\u017E\u010D\u0219\u00BB\u0152\u0153\u0178\u017C"
            u"\u00C0\u00C1\u00C2\u0102\u00C4\u0106\u00C6\u00C7\u00C8\u00C9\u00CA\u00CB\u00CC\u00CD\u00CE\u00CF"
            u"\u0110\u0143\u00D2\u00D3\u00D4\u0150\u00D6\u015A\u0170\u00D9\u00DA\u00DB\u00DC\u0118\u021A\u00DF"
            u"\u00E0\u00E1\u00E2\u0103\u00E4\u0107\u00E6\u00E7\u00E8\u00E9\u00EA\u00EB\u00EC\u00ED\u00EE\u00EF"
            u"\u0111\u0144\u00F2\u00F3\u00F4\u0151\u00F6\u015B\u0171\u00F9\u00FA\u00FB\u00FC\u0119\u021B\u00FF");

} // namespace kiv::internal
