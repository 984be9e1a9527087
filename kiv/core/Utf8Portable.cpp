#include "kiv/core/Utf8.h"
#include "kiv/core/Utf8Kernels.h"
#include "kiv/core/Utf8Words.h"

namespace kiv::internal {
namespace {

template <Zeros zeros>
bool acceptsWord(uint64_t word) {
    return zeros == Zeros::Accept ? isAsciiWord(word) : cleanAsciiBytes(word) == sizeof word;
}

template <Zeros zeros>
size_t prefix(const char* text, size_t size) {
    const char* it = text;
    const char* const end = text + size;
    while (it != end) {
        if (end - it >= 8 && acceptsWord<zeros>(loadWord(it))) {
            it += 8;
            continue;
        }
        // One step past the byte that stopped the word; behind a non-ASCII code point another one is likely.
        do {
            if (zeros == Zeros::Refuse && *it == 0) return static_cast<size_t>(it - text);
            if (strictDecode(it, end) == noCodePoint) return static_cast<size_t>(it - text);
        } while (it != end && static_cast<unsigned char>(*it) >= 0x80);
    }
    return size;
}

size_t countValid(const char* text, size_t size) {
    size_t count = 0;
    for (size_t i = 0; i < size; ++i) count += !isContinuationByte(text[i]);
    return count;
}

} // namespace

constinit const Utf8Kernels utf8Portable = {prefix<Zeros::Accept>, prefix<Zeros::Refuse>, countValid};

} // namespace kiv::internal
