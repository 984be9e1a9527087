#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

// Sources that include this are compiled for one instruction set. Whatever they call must be inlined or have internal
// linkage: a shared inline function could be kept in its vector form and then run on a processor without it. Hence the
// unnamed namespace, and of std nothing but memcpy and memset.

namespace kiv::internal {
namespace {

// Sixteen bytes. "Lane": the sixteen bytes that look-ups and shuffles stay within; here there is one.
struct Sse4Vector {
    using Register = __m128i;
    static constexpr size_t size = 16;

    static Register load(const void* from) { return _mm_loadu_si128(static_cast<const __m128i*>(from)); }
    static void store(void* to, Register v) { _mm_storeu_si128(static_cast<__m128i*>(to), v); }
    static Register splat(int byte) { return _mm_set1_epi8(static_cast<char>(byte)); }
    static Register splat32(int value) { return _mm_set1_epi32(value); }
    // The sixteen bytes of a look-up table or shuffle pattern, in every lane.
    static Register lanes(const void* sixteen) { return load(sixteen); }

    static Register bitAnd(Register a, Register b) { return _mm_and_si128(a, b); }
    static Register bitOr(Register a, Register b) { return _mm_or_si128(a, b); }
    static Register bitXor(Register a, Register b) { return _mm_xor_si128(a, b); }
    static Register highNibbles(Register v) { return bitAnd(_mm_srli_epi16(v, 4), splat(15)); }
    static Register add(Register a, Register b) { return _mm_add_epi8(a, b); }
    static Register sub(Register a, Register b) { return _mm_sub_epi8(a, b); }
    static Register addSaturated(Register a, Register b) { return _mm_adds_epu8(a, b); }
    static Register subSaturated(Register a, Register b) { return _mm_subs_epu8(a, b); }
    static Register equal(Register a, Register b) { return _mm_cmpeq_epi8(a, b); }
    static Register greaterSigned(Register a, Register b) { return _mm_cmpgt_epi8(a, b); }
    static Register minSigned(Register a, Register b) { return _mm_min_epi8(a, b); }
    static Register min(Register a, Register b) { return _mm_min_epu8(a, b); }
    // Bytes of `table`'s lane chosen by `index`.
    static Register lookup(Register table, Register index) { return _mm_shuffle_epi8(table, index); }

    static bool anyHighBit(Register v) { return _mm_movemask_epi8(v) != 0; }
    static bool anyBit(Register v) { return _mm_testz_si128(v, v) == 0; }
    // The place of the first byte that is not zero. Requires: anyBit(v).
    static size_t firstNotZero(Register v) {
        const auto zeros = static_cast<unsigned>(_mm_movemask_epi8(equal(v, _mm_setzero_si128())));
        return lowZeroBits(~zeros);
    }
    static size_t lowZeroBits(unsigned bits) { return static_cast<size_t>(_mm_popcnt_u32(~bits & (bits - 1))); }
    // The bytes `n` places before each byte of `v`; `before` precedes `v`.
    template <int n>
    static Register previous(Register v, Register before) {
        return _mm_alignr_epi8(v, before, 16 - n);
    }
    static uint64_t sumBytes(Register v) {
        const Register sums = _mm_sad_epu8(v, _mm_setzero_si128());
        return static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_add_epi64(sums, _mm_unpackhi_epi64(sums, sums))));
    }

    static Register mulHigh16(Register a, Register b) { return _mm_mulhi_epu16(a, b); }
    static Register mulLow16(Register a, Register b) { return _mm_mullo_epi16(a, b); }
    static Register mulAddBytes(Register bytes, Register factors) { return _mm_maddubs_epi16(bytes, factors); }
    static Register mulAdd16(Register a, Register b) { return _mm_madd_epi16(a, b); }
    // The low bytes of the 16-bit values of `a`, then of `b`. Requires: all below 256.
    static Register narrow(Register a, Register b) { return _mm_packus_epi16(a, b); }
    // Writes first[0], second[0], first[1], ...: 2 * size bytes.
    static void storeInterleaved(void* to, Register first, Register second) {
        store(to, _mm_unpacklo_epi8(first, second));
        store(static_cast<char*>(to) + 16, _mm_unpackhi_epi8(first, second));
    }

    // Twelve bytes a lane; the last lane reads or writes sixteen.
    static constexpr size_t packedSize = 12;
    static constexpr size_t packedReach = 16;
    static Register loadPacked(const void* from) { return load(from); }
    static void storePacked(void* to, Register v) { store(to, v); }
};

} // namespace
} // namespace kiv::internal
