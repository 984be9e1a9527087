#include "kiv/core/Codecs.h"

#include "kiv/core/CodecKernels.h"
#include "kiv/core/Simd.h"

#include <crc32c/crc32c.h>

namespace kiv::internal {
namespace {

const CodecKernels& kernels() {
    static constexpr KernelTables<CodecKernels> tables = {&codecsPortable, &codecsSse4, &codecsAvx2};
    return activeKernels<CodecKernels>(tables);
}

constexpr size_t checksumChars = 4;

// Puts the offset of the first foreign character among [from, to) into `result`; false when there is none.
bool findForeign(uint8_t (*value)(char), const char* text, size_t from, size_t to, CodecResult& result) {
    for (size_t i = from; i < to; ++i) {
        if (value(text[i]) == foreignCharacter) {
            result = {CodecError::Character, i};
            return true;
        }
    }
    return false;
}

// The last group of one or two bytes; the bits that no byte fills are zero.
void encodeRest64(const uint8_t* bytes, size_t n, char* out) {
    const unsigned group = unsigned{bytes[0]} << 16 | (n > 1 ? unsigned{bytes[1]} << 8 : 0);
    for (size_t i = 0; i <= n; ++i) out[i] = base64Letters[group >> (18 - 6 * i) & 63];
}

// The last group of two or three letters, all of the alphabet; false when the unused bits are not zero.
bool decodeRest64(const char* text, size_t chars, uint8_t* out) {
    unsigned group = 0;
    for (size_t i = 0; i < chars; ++i) group |= unsigned{base64Value(text[i])} << (18 - 6 * i);
    for (size_t i = 0; i + 1 < chars; ++i) out[i] = static_cast<uint8_t>(group >> (16 - 8 * i));
    return (group & (chars == 2 ? 0xFFFF : 0xFF)) == 0;
}

} // namespace

void encodeBase16(const uint8_t* bytes, size_t n, char* out) {
    kernels().encodeBase16(bytes, n, out);
}

CodecResult decodeBase16(const char* text, size_t chars, uint8_t* out) {
    if (chars % 2 != 0) return {CodecError::Length, chars - 1};
    const size_t done = kernels().decodeBase16(text, chars, out);
    CodecResult result;
    findForeign(base16Value, text, done, chars, result);
    return result;
}

void encodeBase64(const uint8_t* bytes, size_t n, char* out) {
    const size_t done = kernels().encodeBase64(bytes, n, out);
    if (done != n) encodeRest64(bytes + done, n - done, out + done / 3 * 4);
}

CodecResult decodeBase64(const char* text, size_t chars, uint8_t* out) {
    if (chars % 4 == 1) return {CodecError::Length, chars - 1};
    const size_t done = kernels().decodeBase64(text, chars, out);
    CodecResult result;
    if (done == chars || findForeign(base64Value, text, done, chars, result)) return result;
    if (!decodeRest64(text + done, chars - done, out + done / 4 * 3)) result = {CodecError::UnusedBits, chars - 1};
    return result;
}

void encodeBase64crc(const uint8_t* bytes, size_t n, char* out) {
    const uint32_t checksum = checksum24(bytes, n);
    const uint8_t stored[] = {static_cast<uint8_t>(checksum), static_cast<uint8_t>(checksum >> 8),
                              static_cast<uint8_t>(checksum >> 16)};
    encodeBase64(stored, sizeof stored, out);
    encodeBase64(bytes, n, out + checksumChars);
}

CodecResult decodeBase64crc(const char* text, size_t chars, uint8_t* out) {
    if (chars < checksumChars || chars % 4 == 1) return {CodecError::Length, chars == 0 ? 0 : chars - 1};
    uint8_t stored[3];
    CodecResult result = decodeBase64(text, checksumChars, stored);
    if (!result) return result;
    result = decodeBase64(text + checksumChars, chars - checksumChars, out);
    if (!result) return {result.error, result.offset + checksumChars};
    const uint32_t expected = uint32_t{stored[2]} << 16 | uint32_t{stored[1]} << 8 | stored[0];
    const auto size = static_cast<size_t>(decodedBase64crcSize(chars));
    return checksum24(out, size) == expected ? CodecResult{} : CodecResult{CodecError::Checksum, 0};
}

uint32_t checksum24(const uint8_t* bytes, size_t n) {
    return ~crc32c::Extend(0, bytes, n) & 0xFFFFFF;
}

} // namespace kiv::internal
