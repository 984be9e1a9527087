#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv::internal {

// The bulk loops of Codecs.cpp, one table per instruction set. Each handles whole groups (one byte of base16, three of
// base64) from the start on and returns how much input it took; it may stop short of the end, and a decoder stops
// before the first foreign character. Codecs.cpp finishes, and finds out what was wrong.
struct CodecKernels {
    size_t (*encodeBase16)(const uint8_t* bytes, size_t n, char* out);
    size_t (*decodeBase16)(const char* text, size_t chars, uint8_t* out);
    size_t (*encodeBase64)(const uint8_t* bytes, size_t n, char* out);
    size_t (*decodeBase64)(const char* text, size_t chars, uint8_t* out);
};

extern const CodecKernels codecsPortable;

inline constexpr char base16Digits[] = "0123456789ABCDEF";
inline constexpr char base64Letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
inline constexpr uint8_t foreignCharacter = 0xFF;

// The value of a character in its alphabet, or foreignCharacter; defined by the portable kernels.
uint8_t base16Value(char c);
uint8_t base64Value(char c);

} // namespace kiv::internal
