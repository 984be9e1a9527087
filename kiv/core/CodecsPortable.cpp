#include "kiv/core/CodecKernels.h"

#include <array>
#include <cstring>

namespace kiv::internal {
namespace {

using Values = std::array<uint8_t, 256>;

constexpr unsigned index(char c) {
    return static_cast<unsigned char>(c);
}

constexpr Values base16Values = [] {
    Values values{};
    values.fill(foreignCharacter);
    for (uint8_t v = 0; v < 16; ++v) values[index(base16Digits[v])] = v;
    for (uint8_t v = 10; v < 16; ++v) values[index('a') + v - 10] = v;
    return values;
}();

constexpr Values base64Values = [] {
    Values values{};
    values.fill(foreignCharacter);
    for (uint8_t v = 0; v < 64; ++v) values[index(base64Letters[v])] = v;
    return values;
}();

// Both digits of every byte, so that a byte costs one look-up.
constexpr std::array<char, 512> base16Pairs = [] {
    std::array<char, 512> pairs{};
    for (size_t byte = 0; byte < 256; ++byte) {
        pairs[2 * byte] = base16Digits[byte >> 4];
        pairs[2 * byte + 1] = base16Digits[byte & 15];
    }
    return pairs;
}();

size_t encode16(const uint8_t* bytes, size_t n, char* out) {
    for (size_t i = 0; i < n; ++i) std::memcpy(out + 2 * i, &base16Pairs[2 * size_t{bytes[i]}], 2);
    return n;
}

size_t decode16(const char* text, size_t chars, uint8_t* out) {
    size_t i = 0;
    for (; i + 2 <= chars; i += 2) {
        const unsigned high = base16Values[index(text[i])], low = base16Values[index(text[i + 1])];
        if ((high | low) == foreignCharacter) break;
        *out++ = static_cast<uint8_t>(high << 4 | low);
    }
    return i;
}

size_t encode64(const uint8_t* bytes, size_t n, char* out) {
    size_t i = 0;
    for (; i + 3 <= n; i += 3) {
        const unsigned group = unsigned{bytes[i]} << 16 | unsigned{bytes[i + 1]} << 8 | bytes[i + 2];
        for (int shift = 18; shift >= 0; shift -= 6) *out++ = base64Letters[group >> shift & 63];
    }
    return i;
}

size_t decode64(const char* text, size_t chars, uint8_t* out) {
    size_t i = 0;
    for (; i + 4 <= chars; i += 4) {
        const unsigned a = base64Values[index(text[i])], b = base64Values[index(text[i + 1])];
        const unsigned c = base64Values[index(text[i + 2])], d = base64Values[index(text[i + 3])];
        if ((a | b | c | d) == foreignCharacter) break;
        *out++ = static_cast<uint8_t>(a << 2 | b >> 4);
        *out++ = static_cast<uint8_t>(b << 4 | c >> 2);
        *out++ = static_cast<uint8_t>(c << 6 | d);
    }
    return i;
}

} // namespace

constinit const CodecKernels codecsPortable = {encode16, decode16, encode64, decode64};

uint8_t base16Value(char c) {
    return base16Values[index(c)];
}
uint8_t base64Value(char c) {
    return base64Values[index(c)];
}

} // namespace kiv::internal
