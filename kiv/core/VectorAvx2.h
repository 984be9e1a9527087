#pragma once

#include "kiv/core/VectorSse4.h"

namespace kiv::internal {
namespace {

// Thirty-two bytes in two lanes; the members mean what they mean in Sse4Vector.
struct Avx2Vector {
    using Register = __m256i;
    static constexpr size_t size = 32;

    static Register load(const void* from) { return _mm256_loadu_si256(static_cast<const __m256i*>(from)); }
    static void store(void* to, Register v) { _mm256_storeu_si256(static_cast<__m256i*>(to), v); }
    static Register splat(int byte) { return _mm256_set1_epi8(static_cast<char>(byte)); }
    static Register splat32(int value) { return _mm256_set1_epi32(value); }
    static Register lanes(const void* sixteen) { return _mm256_broadcastsi128_si256(Sse4Vector::load(sixteen)); }

    static Register bitAnd(Register a, Register b) { return _mm256_and_si256(a, b); }
    static Register bitOr(Register a, Register b) { return _mm256_or_si256(a, b); }
    static Register bitXor(Register a, Register b) { return _mm256_xor_si256(a, b); }
    static Register highNibbles(Register v) { return bitAnd(_mm256_srli_epi16(v, 4), splat(15)); }
    static Register add(Register a, Register b) { return _mm256_add_epi8(a, b); }
    static Register sub(Register a, Register b) { return _mm256_sub_epi8(a, b); }
    static Register addSaturated(Register a, Register b) { return _mm256_adds_epu8(a, b); }
    static Register subSaturated(Register a, Register b) { return _mm256_subs_epu8(a, b); }
    static Register equal(Register a, Register b) { return _mm256_cmpeq_epi8(a, b); }
    static Register greaterSigned(Register a, Register b) { return _mm256_cmpgt_epi8(a, b); }
    static Register minSigned(Register a, Register b) { return _mm256_min_epi8(a, b); }
    static Register min(Register a, Register b) { return _mm256_min_epu8(a, b); }
    static Register lookup(Register table, Register index) { return _mm256_shuffle_epi8(table, index); }

    static bool anyHighBit(Register v) { return _mm256_movemask_epi8(v) != 0; }
    static bool anyBit(Register v) { return _mm256_testz_si256(v, v) == 0; }
    static size_t firstNotZero(Register v) {
        const auto zeros = static_cast<unsigned>(_mm256_movemask_epi8(equal(v, _mm256_setzero_si256())));
        return Sse4Vector::lowZeroBits(~zeros);
    }
    template <int n>
    static Register previous(Register v, Register before) {
        return _mm256_alignr_epi8(v, _mm256_permute2x128_si256(before, v, 0x21), 16 - n);
    }
    static uint64_t sumBytes(Register v) {
        const Register sums = _mm256_sad_epu8(v, _mm256_setzero_si256());
        const __m128i two = _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
        return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_add_epi64(two, _mm_unpackhi_epi64(two, two))));
    }

    static Register mulHigh16(Register a, Register b) { return _mm256_mulhi_epu16(a, b); }
    static Register mulLow16(Register a, Register b) { return _mm256_mullo_epi16(a, b); }
    static Register mulAddBytes(Register bytes, Register factors) { return _mm256_maddubs_epi16(bytes, factors); }
    static Register mulAdd16(Register a, Register b) { return _mm256_madd_epi16(a, b); }
    static Register narrow(Register a, Register b) {
        return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0b11011000);
    }
    static void storeInterleaved(void* to, Register first, Register second) {
        const Register low = _mm256_unpacklo_epi8(first, second);
        const Register high = _mm256_unpackhi_epi8(first, second);
        store(to, _mm256_permute2x128_si256(low, high, 0x20));
        store(static_cast<char*>(to) + 32, _mm256_permute2x128_si256(low, high, 0x31));
    }

    static constexpr size_t packedSize = 24;
    static constexpr size_t packedReach = 28;
    static Register loadPacked(const void* from) {
        const __m128i first = Sse4Vector::load(from);
        const __m128i second = Sse4Vector::load(static_cast<const char*>(from) + 12);
        return _mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1);
    }
    static void storePacked(void* to, Register v) {
        Sse4Vector::store(to, _mm256_castsi256_si128(v));
        Sse4Vector::store(static_cast<char*>(to) + 12, _mm256_extracti128_si256(v, 1));
    }
};

} // namespace
} // namespace kiv::internal
