#pragma once

#include "kiv/core/Utf8Kernels.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <cstring>

// The vector form of the UTF-8 kernels, for one of the vector classes (see VectorSse4.h for what may be used here).
//
// Whether a byte may follow the one before it depends on three nibbles: both of the first byte and the high one of the
// second. Every kind of fault is one bit, and is the product of three sets of nibbles; so three table look-ups of
// sixteen entries, and-ed, find the faults of every pair in a vector. That two continuations in a row are right exactly
// in the third and fourth place is checked against the bytes two and three places back.

namespace kiv::internal {

struct Utf8PairTables {
    alignas(16) uint8_t firstHigh[16] = {};
    alignas(16) uint8_t firstLow[16] = {};
    alignas(16) uint8_t secondHigh[16] = {};
};

// Bit n of a set stands for nibble n.
struct Utf8PairFault {
    unsigned firstHigh, firstLow, secondHigh;
};

inline constexpr uint8_t twoContinuations = 0x80;
inline constexpr unsigned anyNibble = 0xFFFF;
inline constexpr unsigned continuationNibbles = 0x0F00;
inline constexpr Utf8PairFault utf8PairFaults[8] = {
    {0xF000, anyNibble, anyNibble & ~continuationNibbles},  // a lead without a continuation
    {0x00FF, anyNibble, continuationNibbles},               // a continuation after ASCII
    {1u << 0xE, 1u << 0x0, 0x0300},                         // three bytes below 0x800
    {1u << 0xE, 1u << 0xD, 0x0C00},                         // surrogates
    {1u << 0xC, 0x0003, continuationNibbles},               // two bytes below 0x80
    {1u << 0xF, 0xFFF0, 0x0E00},                            // above 0x10FFFF
    {1u << 0xF, 0xFFE1, 0x0100},                            // four bytes below 0x10000, and F5 to FF
    {continuationNibbles, anyNibble, continuationNibbles}}; // twoContinuations

inline constexpr Utf8PairTables utf8PairTables = [] {
    Utf8PairTables tables;
    for (unsigned fault = 0; fault < 8; ++fault) {
        const auto add = [fault](uint8_t(&table)[16], unsigned set) {
            for (unsigned nibble = 0; nibble < 16; ++nibble) {
                table[nibble] = static_cast<uint8_t>(table[nibble] | (set >> nibble & 1) << fault);
            }
        };
        add(tables.firstHigh, utf8PairFaults[fault].firstHigh);
        add(tables.firstLow, utf8PairFaults[fault].firstLow);
        add(tables.secondHigh, utf8PairFaults[fault].secondHigh);
    }
    return tables;
}();

template <class V, Zeros zeros>
class Utf8Scan {
    using Register = typename V::Register;

public:
    static size_t prefix(const char* text, size_t size) {
        Utf8Scan scan;
        size_t at = scan.wholeGroups(text, size);
        if (size - at < groupSize) {
            if (scan.acceptsRest(text + at, size - at)) return size;
        } else {
            at += scan.firstFault();
        }
        // The byte at `at` is at fault, or one shortly behind it; before it the text is valid but for its end.
        at = codePointBefore(text, at);
        const Utf8Kernels& exact = utf8Portable;
        return at + (zeros == Zeros::Accept ? exact.validPrefix : exact.cleanPrefix)(text + at, size - at);
    }

private:
    static constexpr size_t groupSize = 2 * V::size;

    // Advances over groups without a fault; stops at a faulty one or a short rest.
    KIV_ALWAYS_INLINE size_t wholeGroups(const char* text, size_t size) {
        size_t at = 0;
        while (size - at >= groupSize) {
            const Register a = V::load(text + at), b = V::load(text + at + V::size);
            if (isPlain(a, b) && !V::anyBit(m_cutShort)) {
                m_before = V::splat(0);
                at += groupSize;
                at += plainGroups(text + at, size - at);
            } else {
                if (!accepts(text + at)) break;
                at += groupSize;
            }
        }
        return at;
    }

    // Bytes of ASCII, by two groups at a time.
    static KIV_ALWAYS_INLINE size_t plainGroups(const char* text, size_t size) {
        size_t at = 0;
        for (; size - at >= 2 * groupSize; at += 2 * groupSize) {
            const Register a = V::load(text + at), b = V::load(text + at + V::size);
            const Register c = V::load(text + at + 2 * V::size), d = V::load(text + at + 3 * V::size);
            // What makes a pair of vectors not plain also shows in their join.
            if (!(zeros == Zeros::Accept ? isPlain(V::bitOr(a, b), V::bitOr(c, d))
                                         : isPlain(V::minSigned(a, b), V::minSigned(c, d)))) {
                break;
            }
        }
        return at;
    }

    static KIV_ALWAYS_INLINE bool isPlain(Register a, Register b) {
        if (zeros == Zeros::Accept) return !V::anyHighBit(V::bitOr(a, b));
        // Read as signed, the wanted bytes are exactly the positive ones.
        return !V::anyHighBit(V::greaterSigned(V::splat(1), V::minSigned(a, b)));
    }

    KIV_ALWAYS_INLINE bool accepts(const char* group) {
        const Register a = V::load(group);
        const char* const second = group + V::size;
        const Register b = V::load(second);
        // The bytes before a byte come by shuffling for the one vector and by loading for the other: that keeps both
        // the shuffling and the loading parts of the processor busy.
        m_faultsA = pairFaults(a, V::template previous<1>(a, m_before), V::template previous<2>(a, m_before),
                               V::template previous<3>(a, m_before));
        m_faultsB = pairFaults(b, V::load(second - 1), V::load(second - 2), V::load(second - 3));
        if (zeros == Zeros::Refuse) {
            m_faultsA = V::bitOr(m_faultsA, V::equal(a, V::splat(0)));
            m_faultsB = V::bitOr(m_faultsB, V::equal(b, V::splat(0)));
        }
        m_before = b;
        // A lead among the last three bytes that wants more than follows; nothing else exceeds these limits.
        m_cutShort = V::subSaturated(b, lastLimits());
        return !V::anyBit(V::bitOr(m_faultsA, m_faultsB));
    }

    // Where in its group the first fault lies. Requires: accepts() returned false.
    size_t firstFault() const {
        return V::anyBit(m_faultsA) ? V::firstNotZero(m_faultsA) : V::size + V::firstNotZero(m_faultsB);
    }

    // The rest is shorter than a group; behind it ASCII is made up, so that a cut sequence at the end is a fault.
    KIV_ALWAYS_INLINE bool acceptsRest(const char* rest, size_t size) {
        char group[groupSize];
        std::memset(group, 'x', sizeof group);
        if (size != 0) std::memcpy(group, rest, size);
        return accepts(group);
    }

    static KIV_ALWAYS_INLINE Register pairFaults(Register bytes, Register oneBack, Register twoBack,
                                                 Register threeBack) {
        const Register byFirstHigh = V::lookup(V::lanes(utf8PairTables.firstHigh), V::highNibbles(oneBack));
        const Register byFirstLow = V::lookup(V::lanes(utf8PairTables.firstLow), V::bitAnd(oneBack, V::splat(15)));
        const Register bySecond = V::lookup(V::lanes(utf8PairTables.secondHigh), V::highNibbles(bytes));
        const Register faults = V::bitAnd(V::bitAnd(byFirstHigh, byFirstLow), bySecond);
        // The high bit remains for bytes that a lead two (E0 and up) or three (F0 and up) places back asks for.
        const Register wantsThird = V::subSaturated(twoBack, V::splat(0xE0 - 0x80));
        const Register wantsFourth = V::subSaturated(threeBack, V::splat(0xF0 - 0x80));
        const Register wanted = V::bitAnd(V::bitOr(wantsThird, wantsFourth), V::splat(twoContinuations));
        return V::bitXor(faults, wanted);
    }

    static KIV_ALWAYS_INLINE Register lastLimits() {
        alignas(32) static constexpr uint8_t limits[32] = {
            0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
            0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xDF, 0xBF};
        return V::load(limits + sizeof limits - V::size);
    }

    // Where the last code point that begins before `at` begins. Requires: the text before `at` is valid but for its
    // end.
    static size_t codePointBefore(const char* text, size_t at) {
        size_t from = at;
        for (int steps = 0; steps < 4 && from != 0; ++steps) {
            --from;
            if ((static_cast<unsigned char>(text[from]) & 0xC0) != 0x80) return from;
        }
        return from;
    }

    Register m_faultsA, m_faultsB;     // of the last group
    Register m_before = V::splat(0);   // the vector before the next group; zeros stand for any ASCII
    Register m_cutShort = V::splat(0); // not zero when that vector ends inside a code point
};

template <class V>
size_t countValidUtf8(const char* text, size_t size) {
    uint64_t count = 0;
    size_t at = 0;
    const auto continuationLimit = V::splat(0xC0 - 0x100);
    while (size - at >= V::size) {
        // Byte counters: emptied before they can wrap.
        auto counters = V::splat(0);
        for (int i = 0; i < 255 && size - at >= V::size; ++i, at += V::size) {
            const auto continuations = V::greaterSigned(continuationLimit, V::load(text + at));
            counters = V::sub(counters, continuations);
        }
        count += V::sumBytes(counters);
    }
    return static_cast<size_t>(at - count) + utf8Portable.countValid(text + at, size - at);
}

template <class V>
inline constexpr Utf8Kernels utf8Simd = {Utf8Scan<V, Zeros::Accept>::prefix, Utf8Scan<V, Zeros::Refuse>::prefix,
                                         countValidUtf8<V>};

} // namespace kiv::internal
