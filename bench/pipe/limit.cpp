#include "Pipe.h"

#include <immintrin.h>

namespace {

// The limit: as by hand, but with sixteen bytes at a time, no check of the digits, and one buffer for all payloads.

__attribute__((target("ssse3"))) void encode(const uint8_t* from, size_t size, char* to) {
    const __m128i digits =
        _mm_setr_epi8('0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'A', 'B', 'C', 'D', 'E', 'F');
    const __m128i low = _mm_set1_epi8(15);
    for (size_t i = 0; i < size; i += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
        const __m128i first = _mm_shuffle_epi8(digits, _mm_and_si128(_mm_srli_epi16(bytes, 4), low));
        const __m128i second = _mm_shuffle_epi8(digits, _mm_and_si128(bytes, low));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 2 * i), _mm_unpacklo_epi8(first, second));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 2 * i + 16), _mm_unpackhi_epi8(first, second));
    }
}

// Eight bytes' worth in the lower halves of the words. A letter's lower half is 9 too small.
__attribute__((target("ssse3"))) __m128i decode16(const char* from) {
    const __m128i digits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i isLetter = _mm_cmpgt_epi8(digits, _mm_set1_epi8('9'));
    const __m128i values =
        _mm_add_epi8(_mm_and_si128(digits, _mm_set1_epi8(15)), _mm_and_si128(isLetter, _mm_set1_epi8(9)));
    return _mm_maddubs_epi16(values, _mm_set1_epi16(0x0110));
}

__attribute__((target("ssse3"))) void decode(const char* from, size_t size, uint8_t* to) {
    for (size_t i = 0; i < size; i += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i),
                         _mm_packus_epi16(decode16(from + 2 * i), decode16(from + 2 * i + 16)));
}

void write(size_t payloadSize, size_t count) {
    std::vector<uint8_t> payload(payloadSize, 0x5A);
    std::string line(bench::lineBegin);
    line.append(2 * (bench::headerSize + payloadSize), '0');
    line += "]\n";
    for (size_t n = 0; n < count; ++n) {
        encode(payload.data(), payloadSize, line.data() + bench::lineBegin.size() + 2 * bench::headerSize);
        bench::writeAll(line.data(), line.size());
    }
}

size_t read(size_t payloadSize) {
    const bench::PlainChild child("limit", payloadSize);
    const size_t length = bench::lineBegin.size() + 2 * (bench::headerSize + payloadSize) + 1;
    std::vector<uint8_t> payload(payloadSize);
    size_t count = 0;
    bench::readLines(child.output, 3 * payloadSize, [&](const char* line, const char* end) {
        if (static_cast<size_t>(end - line) != length) return;
        decode(line + bench::lineBegin.size() + 2 * bench::headerSize, payloadSize, payload.data());
        benchmark::DoNotOptimize(payload.data());
        ++count;
    });
    return count;
}

const bench::Writer writer("limit", write);
const bench::Contestant fromChild("from-child", "write-limit", read);

} // namespace
