#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <string>

// The byte-level engine under every text operation of the library. Reading is either strict (a refused sequence is
// reported) or lenient (one byte of a refused sequence is read as Windows-1252), so that text from any source can be
// shown, compared and repaired. All functions are free of state and may run on any thread; texts may hold zero bytes.

namespace kiv::internal {

// Stands for "no code point": refused, or not mapped.
inline constexpr uint32_t noCodePoint = 0xFFFFFFFF;
inline constexpr uint32_t replacementCodePoint = 0xFFFD;

// The code points of the bytes 0x80 to 0x9F; the five bytes that Windows-1252 leaves undefined give U+FFFD.
inline constexpr uint16_t windows1252Controls[32] = {0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                     0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD,
                                                     0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                     0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

constexpr uint32_t windows1252CodePoint(uint8_t byte) {
    return byte >= 0x80 && byte < 0xA0 ? windows1252Controls[byte - 0x80] : byte;
}

constexpr bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// True for the values UTF-8 can carry: up to 0x10FFFF and no surrogate.
constexpr bool isEncodable(uint32_t codePoint) {
    return codePoint < 0xD800 || (codePoint > 0xDFFF && codePoint <= 0x10FFFF);
}

// The part of strictDecode() for bytes from 0x80 on. Requires: it < end.
constexpr uint32_t strictDecodeSequence(const char*& it, const char* end) {
    const auto byte = [it](int index) { return uint32_t{static_cast<unsigned char>(it[index])}; };
    const auto payload = [byte](int index) { return byte(index) & 0x3F; };
    const uint32_t lead = byte(0);
    const ptrdiff_t left = end - it;
    // What most refused bytes fail, as one test that is easy to predict: below C2 are no leads, or only overlong ones.
    if (left < 2 || ((lead < 0xC2) | !isContinuationByte(it[1]))) return noCodePoint;
    uint32_t codePoint = 0;
    if (lead < 0xE0) {
        codePoint = (lead & 0x1F) << 6 | payload(1);
        it += 2;
    } else if (lead < 0xF0) {
        if (left < 3 || !isContinuationByte(it[2])) return noCodePoint;
        codePoint = (lead & 0x0F) << 12 | payload(1) << 6 | payload(2);
        if (codePoint < 0x800 || !isEncodable(codePoint)) return noCodePoint;
        it += 3;
    } else {
        if (lead > 0xF4 || left < 4 || !isContinuationByte(it[2]) || !isContinuationByte(it[3])) return noCodePoint;
        codePoint = (lead & 0x07) << 18 | payload(1) << 12 | payload(2) << 6 | payload(3);
        if (codePoint < 0x10000 || codePoint > 0x10FFFF) return noCodePoint;
        it += 4;
    }
    return codePoint;
}

// The code point at `it`, which moves past it; noCodePoint for a refused sequence (overlong, surrogate, cut short,
// above 0x10FFFF, no lead byte), and then `it` stays. Requires: it < end.
constexpr uint32_t strictDecode(const char*& it, const char* end) {
    const auto lead = static_cast<unsigned char>(*it);
    if (lead >= 0x80) return strictDecodeSequence(it, end);
    ++it;
    return lead;
}

// Like strictDecode(), but never fails: of a refused sequence one byte is consumed and read as Windows-1252.
// Requires: it < end.
constexpr uint32_t lenientDecode(const char*& it, const char* end) {
    const uint32_t codePoint = strictDecode(it, end);
    return codePoint != noCodePoint ? codePoint : windows1252CodePoint(static_cast<unsigned char>(*it++));
}

// Writes the UTF-8 form and returns its length, 1 to 4; 0 (and nothing written) when `codePoint` is not encodable.
constexpr unsigned encodeUtf8(uint32_t codePoint, char out[4]) {
    const auto continuation = [codePoint](int shift) { return static_cast<char>(0x80 | (codePoint >> shift & 0x3F)); };
    if (codePoint < 0x80) {
        out[0] = static_cast<char>(codePoint);
        return 1;
    }
    if (codePoint < 0x800) {
        out[0] = static_cast<char>(0xC0 | codePoint >> 6);
        out[1] = continuation(0);
        return 2;
    }
    if (!isEncodable(codePoint)) return 0;
    if (codePoint < 0x10000) {
        out[0] = static_cast<char>(0xE0 | codePoint >> 12);
        out[1] = continuation(6);
        out[2] = continuation(0);
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | codePoint >> 18);
    out[1] = continuation(12);
    out[2] = continuation(6);
    out[3] = continuation(0);
    return 4;
}

// True when strict decoding accepts the text to its end; zero bytes are code points like any other.
KIV_API bool validateUtf8(const char* text, size_t size);

// The number of code points that lenient reading finds; a zero byte counts as one.
KIV_API size_t countUtf8(const char* text, size_t size);

// Replaces `out` by the text read leniently and written as UTF-8, up to the first code point 0 or the end.
// Requires: `text` does not lie in `out` (true of all functions below).
KIV_API void repairUtf8(const char* text, size_t size, std::string& out);

enum class ControlCodes { Keep, Remove };

// Like repairUtf8(), but every code point from 128 on and every undefined byte becomes "?". `Remove` leaves out 0x01 to
// 0x1F and 0x7F.
KIV_API void asciiFix(const char* text, size_t size, ControlCodes controlCodes, std::string& out);

// Replaces `out` by the UTF-8 form of UTF-16 (16-bit units) or UTF-32 (32-bit units); an unpaired surrogate or a value
// above 0x10FFFF becomes U+FFFD.
KIV_API void unicodeToUtf8(const char16_t* units, size_t count, std::string& out);
KIV_API void unicodeToUtf8(const char32_t* units, size_t count, std::string& out);
KIV_API void unicodeToUtf8(const wchar_t* units, size_t count, std::string& out);
KIV_API void unicodeToUtf8(const uint16_t* units, size_t count, std::string& out);
KIV_API void unicodeToUtf8(const uint32_t* units, size_t count, std::string& out);

// Replaces `out` by the text, read leniently, as UTF-16 (16-bit units) or UTF-32 (32-bit units).
KIV_API void utf8ToUnicode(const char* text, size_t size, std::u16string& out);
KIV_API void utf8ToUnicode(const char* text, size_t size, std::u32string& out);
KIV_API void utf8ToUnicode(const char* text, size_t size, std::wstring& out);

} // namespace kiv::internal
