#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace kiv::internal {

// Eight bytes of text at a time, for the parts that have no vector form. The first byte is the lowest of the word.
static_assert(std::endian::native == std::endian::little);

inline constexpr uint64_t highBits = 0x8080808080808080;

inline uint64_t loadWord(const char* text) {
    uint64_t word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

constexpr bool isAsciiWord(uint64_t word) {
    return (word & highBits) == 0;
}

// How many bytes from the first on are 0x01 to 0x7F.
constexpr unsigned cleanAsciiBytes(uint64_t word) {
    // The borrow of a zero byte can mark bytes behind it wrongly, never one before it.
    const uint64_t zeros = (word - 0x0101010101010101) & ~word & highBits;
    return static_cast<unsigned>(std::countr_zero((word & highBits) | zeros)) / 8;
}

} // namespace kiv::internal
