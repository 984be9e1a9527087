#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>

// Text forms of bytes: base16, base64 in the URL-safe alphabet without padding, and base64 behind a checksum.
// Decoders are canonical: no two texts of the same letter case decode to the same bytes. Sizes are 64 bit, so that no
// text length from outside can wrap. All functions are free of state and may run on any thread.

namespace kiv::internal {

enum class CodecError {
    None,
    Length,     // no bytes encode to this many characters
    Character,  // a character outside the alphabet
    UnusedBits, // the last character carries bits that belong to no byte
    Checksum    // the bytes do not have the checksum in front of them
};

struct CodecResult {
    CodecError error = CodecError::None;
    size_t offset = 0; // of the first offending character; for Length the last one; for Checksum 0
    explicit operator bool() const { return error == CodecError::None; }
};

constexpr uint64_t encodedBase16Size(uint64_t n) {
    return 2 * n;
}
constexpr uint64_t encodedBase64Size(uint64_t n) {
    return n / 3 * 4 + (n % 3 * 8 + 5) / 6;
}
constexpr uint64_t encodedBase64crcSize(uint64_t n) {
    return 4 + encodedBase64Size(n);
}

// Bytes encoded by so many characters; 0 also for a number of characters that no bytes encode to.
constexpr uint64_t decodedBase16Size(uint64_t chars) {
    return chars % 2 == 0 ? chars / 2 : 0;
}
constexpr uint64_t decodedBase64Size(uint64_t chars) {
    return chars % 4 != 1 ? chars / 4 * 3 + chars % 4 * 6 / 8 : 0;
}
constexpr uint64_t decodedBase64crcSize(uint64_t chars) {
    return chars >= 4 ? decodedBase64Size(chars - 4) : 0;
}

// Encoders write exactly the encoded size, decoders at most the decoded size (and leave unspecified bytes there when
// they fail). The length is judged first, then the characters in their order. Input and output must not overlap.
KIV_API void encodeBase16(const uint8_t* bytes, size_t n, char* out);           // upper case
KIV_API CodecResult decodeBase16(const char* text, size_t chars, uint8_t* out); // both cases
KIV_API void encodeBase64(const uint8_t* bytes, size_t n, char* out);
KIV_API CodecResult decodeBase64(const char* text, size_t chars, uint8_t* out);

// Four characters of checksum24(), least significant byte first, before the base64 form of the bytes.
KIV_API void encodeBase64crc(const uint8_t* bytes, size_t n, char* out);
KIV_API CodecResult decodeBase64crc(const char* text, size_t chars, uint8_t* out);

// The low 24 bits of the complement of the bytes' CRC-32C.
KIV_API uint32_t checksum24(const uint8_t* bytes, size_t n);

} // namespace kiv::internal
