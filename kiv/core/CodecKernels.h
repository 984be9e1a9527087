#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv::internal {

// The bulk loops of Codecs.cpp, one table per instruction set. Each handles all whole groups (a byte and two digits of
// base16, three bytes and four letters of base64); a decoder stops before a group that holds a foreign character. They
// return how much input they took. Codecs.cpp handles the last, smaller group and finds out what was wrong.
struct CodecKernels {
    size_t (*encodeBase16)(const uint8_t* bytes, size_t n, char* out);
    size_t (*decodeBase16)(const char* text, size_t chars, uint8_t* out);
    size_t (*encodeBase64)(const uint8_t* bytes, size_t n, char* out);
    size_t (*decodeBase64)(const char* text, size_t chars, uint8_t* out);
};

extern const CodecKernels codecsPortable;
extern const CodecKernels codecsSse4;
extern const CodecKernels codecsAvx2;

inline constexpr char base16Digits[] = "0123456789ABCDEF";
inline constexpr char base64Letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
inline constexpr uint8_t foreignCharacter = 0xFF;

// The value of a character in its alphabet, or foreignCharacter; defined by the portable kernels.
uint8_t base16Value(char c);
uint8_t base64Value(char c);

} // namespace kiv::internal
