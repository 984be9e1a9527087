#pragma once

#include "kiv/core/CodecKernels.h"
#include "kiv/platform/Compiler.h"

// The vector form of the codec kernels, for one of the vector classes (see VectorSse4.h for what may be used here).

namespace kiv::internal {

// Characters with the same high nibble form a class, one bit each; a character is foreign when its low nibble carries
// the bit of its class. 4 and 6 share a bit, for they lack the same low nibble, and so do all without a letter.
struct Base64Classes {
    alignas(16) uint8_t ofHigh[16] = {32, 32, 1, 2, 4, 8, 4, 16, 32, 32, 32, 32, 32, 32, 32, 32};
    alignas(16) uint8_t foreignAtLow[16] = {};
};

inline constexpr Base64Classes base64Classes = [] {
    Base64Classes classes;
    for (unsigned c = 0; c < 256; ++c) {
        bool foreign = true;
        for (unsigned i = 0; i < 64; ++i) foreign = foreign && static_cast<unsigned char>(base64Letters[i]) != c;
        uint8_t& atLow = classes.foreignAtLow[c & 15];
        if (foreign) atLow = static_cast<uint8_t>(atLow | classes.ofHigh[c >> 4]);
    }
    return classes;
}();

// `narrower` finishes what is shorter than a vector, and what holds a foreign character.
template <class V, const CodecKernels& narrower>
struct CodecsSimd {
    using Register = typename V::Register;

    static size_t encodeBase16(const uint8_t* bytes, size_t n, char* out) {
        const Register table = V::lanes(base16Digits);
        size_t i = 0;
        for (; n - i >= V::size; i += V::size) {
            const Register v = V::load(bytes + i);
            const Register high = V::lookup(table, V::highNibbles(v));
            const Register low = V::lookup(table, V::bitAnd(v, V::splat(15)));
            V::storeInterleaved(out + 2 * i, high, low);
        }
        return i + narrower.encodeBase16(bytes + i, n - i, out + 2 * i);
    }

    static size_t decodeBase16(const char* text, size_t chars, uint8_t* out) {
        size_t i = 0;
        for (; chars - i >= 2 * V::size; i += 2 * V::size) {
            const Register a = base16Values(V::load(text + i));
            const Register b = base16Values(V::load(text + i + V::size));
            if (V::anyHighBit(V::addSaturated(V::bitOr(a, b), V::splat(0x80 - 16)))) break;
            const Register factors = V::splat32(0x01100110); // 16 * first + second
            V::store(out + i / 2, V::narrow(V::mulAddBytes(a, factors), V::mulAddBytes(b, factors)));
        }
        return i + narrower.decodeBase16(text + i, chars - i, out + i / 2);
    }

    static size_t encodeBase64(const uint8_t* bytes, size_t n, char* out) {
        size_t i = 0;
        for (; n - i >= V::packedReach; i += V::packedSize, out += V::size) {
            V::store(out, base64LettersOf(splitGroups(V::loadPacked(bytes + i))));
        }
        return i + narrower.encodeBase64(bytes + i, n - i, out);
    }

    static size_t decodeBase64(const char* text, size_t chars, uint8_t* out) {
        // Stores reach past the bytes of their step: further letters must promise that many.
        constexpr size_t reach = (V::packedReach * 8 + 5) / 6;
        size_t i = 0;
        for (; chars - i >= reach; i += V::size, out += V::packedSize) {
            const Register letters = V::load(text + i);
            if (hasForeign64(letters)) break;
            V::storePacked(out, joinGroups(base64ValuesOf(letters)));
        }
        return i + narrower.decodeBase64(text + i, chars - i, out);
    }

private:
    // 0 to 15 for digits of both cases, more for every other character.
    static KIV_ALWAYS_INLINE Register base16Values(Register text) {
        // Moving '0' to '9' to the top of the byte range lets one saturating step push everything else below 0xF0.
        const Register raised = V::add(text, V::splat(0xFF - '9'));
        const Register decimals = V::sub(V::subSaturated(raised, V::splat(6)), V::splat(0xF0));
        const Register upper = V::bitAnd(text, V::splat(0xDF));
        const Register letters = V::addSaturated(V::sub(upper, V::splat('A')), V::splat(10));
        return V::min(decimals, letters);
    }

    // Spreads each group of three bytes over four bytes of six bits.
    static KIV_ALWAYS_INLINE Register splitGroups(Register packed) {
        alignas(16) static constexpr uint8_t spread[16] = {1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10};
        const Register groups = V::lookup(packed, V::lanes(spread));
        // Shifts by different distances in neighbouring 16-bit values, as multiplications.
        const Register firstAndThird = V::mulHigh16(V::bitAnd(groups, V::splat32(0x0FC0FC00)), V::splat32(0x04000040));
        const Register secondAndFourth = V::mulLow16(V::bitAnd(groups, V::splat32(0x003F03F0)), V::splat32(0x01000010));
        return V::bitOr(firstAndThird, secondAndFourth);
    }

    // The letter is the value plus a distance that depends on its range: index 0 is a-z, 1 to 10 a digit each, 11 and
    // 12 the two signs, 13 A-Z.
    static KIV_ALWAYS_INLINE Register base64LettersOf(Register values) {
        constexpr uint8_t digit = static_cast<uint8_t>('0' - 52);
        alignas(16) static constexpr uint8_t distances[16] = {'a' - 26, digit, digit, digit,
                                                              digit,    digit, digit, digit,
                                                              digit,    digit, digit, static_cast<uint8_t>('-' - 62),
                                                              '_' - 63, 'A',   0,     0};
        const Register capitals = V::greaterSigned(V::splat(26), values);
        const Register range = V::bitOr(V::subSaturated(values, V::splat(51)), V::bitAnd(capitals, V::splat(13)));
        return V::add(values, V::lookup(V::lanes(distances), range));
    }

    static KIV_ALWAYS_INLINE bool hasForeign64(Register letters) {
        const Register byHigh = V::lookup(V::lanes(base64Classes.ofHigh), V::highNibbles(letters));
        const Register byLow = V::lookup(V::lanes(base64Classes.foreignAtLow), V::bitAnd(letters, V::splat(15)));
        return V::anyBit(V::bitAnd(byHigh, byLow));
    }

    // Requires: no foreign character. '_' shares its high nibble with P to Z and moves to entry 13.
    static KIV_ALWAYS_INLINE Register base64ValuesOf(Register letters) {
        constexpr uint8_t upper = static_cast<uint8_t>(0 - 'A'), lower = static_cast<uint8_t>(26 - 'a');
        alignas(16) static constexpr uint8_t distances[16] = {
            0, 0, 62 - '-', 52 - '0', upper, upper, lower, lower, 0, 0, 0, 0, 0, static_cast<uint8_t>(63 - '_'), 0, 0};
        const Register underscore = V::bitAnd(V::equal(letters, V::splat('_')), V::splat(8));
        const Register range = V::bitOr(V::highNibbles(letters), underscore);
        return V::add(letters, V::lookup(V::lanes(distances), range));
    }

    // Joins four bytes of six bits to three bytes, and moves those of a lane to its front.
    static KIV_ALWAYS_INLINE Register joinGroups(Register values) {
        alignas(16) static constexpr uint8_t front[16] = {2, 1,  0,  6,  5,    4,    10,   9,
                                                          8, 14, 13, 12, 0x80, 0x80, 0x80, 0x80};
        const Register pairs = V::mulAddBytes(values, V::splat32(0x01400140));
        const Register groups = V::mulAdd16(pairs, V::splat32(0x00011000));
        return V::lookup(groups, V::lanes(front));
    }
};

template <class V, const CodecKernels& narrower>
inline constexpr CodecKernels codecsSimd = {
    CodecsSimd<V, narrower>::encodeBase16, CodecsSimd<V, narrower>::decodeBase16, CodecsSimd<V, narrower>::encodeBase64,
    CodecsSimd<V, narrower>::decodeBase64};

} // namespace kiv::internal
