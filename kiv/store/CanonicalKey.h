#pragma once

#include "kiv/data/Item.h"

namespace kiv::internal {

// Keys that are equal in the order of stores may differ in bytes: integers have several sizes, zero has two signs, NaN
// many bits, and nested items hold all of these. In the canonical form integers are the shortest, zero is positive and
// NaN is one; equal keys then have equal bytes, and different keys different ones. Item's writers make canonical keys,
// but for negative zero and NaN.
// What follows an incomplete element, and what Buffer, Pointer and Referee hold, stays as it is.
class KIV_API CanonicalKey {
public:
    // The canonical encoding: the key's own bytes where those are it, else bytes held here until the next call.
    // Nothing is copied or allocated for canonical keys without nested items.
    ConstByteSpan of(const Item& key) {
        const ConstByteSpan bytes = key.getConstByteSpan();
        return isCanonical(bytes) ? bytes : convert(bytes);
    }
    static inline bool isCanonical(const ConstByteSpan& encoded);

private:
    enum class Form { Canonical, Other, Nested };

    static inline Form formOf(const uint8_t* element, unsigned size);
    static bool isCanonicalNested(const ConstByteSpan& encoded);
    ConstByteSpan convert(const ConstByteSpan& encoded);

    Item m_converted;
};

constexpr uint64_t bitsOfNegativeZero = 0x8000000000000000;
constexpr uint64_t bitsOfCanonicalNaN = 0x7FF8000000000000;

inline bool isNaN(uint64_t bits) {
    return (bits & 0x7FFFFFFFFFFFFFFF) > 0x7FF0000000000000;
}

// Of a complete element.
inline CanonicalKey::Form CanonicalKey::formOf(const uint8_t* element, unsigned size) {
    bool canonical = true;
    if (size == 3 && element[0] == static_cast<uint8_t>(ValueType::Int16)) {
        const auto value = loadUnaligned<int16_t>(element + 1);
        canonical = value != static_cast<int8_t>(value);
    } else if (size == 5 && element[0] == static_cast<uint8_t>(ValueType::Int32)) {
        const auto value = loadUnaligned<int32_t>(element + 1);
        canonical = value != static_cast<int16_t>(value);
    } else if (size == 9 && element[0] == static_cast<uint8_t>(ValueType::Int64)) {
        const auto value = loadUnaligned<int64_t>(element + 1);
        canonical = value != static_cast<int32_t>(value);
    } else if (size == 9 && element[0] == static_cast<uint8_t>(ValueType::Float)) {
        const auto bits = loadUnaligned<uint64_t>(element + 1);
        canonical = bits != bitsOfNegativeZero && (!isNaN(bits) || bits == bitsOfCanonicalNaN);
    } else if (element[0] == static_cast<uint8_t>(ValueType::SubItem)) {
        return Form::Nested;
    }
    return canonical ? Form::Canonical : Form::Other;
}

inline bool CanonicalKey::isCanonical(const ConstByteSpan& encoded) {
    const uint8_t* at = encoded.getBytePointer();
    for (unsigned left = encoded.getSize(); left != 0;) {
        const unsigned size = sizeOfElement(at, left);
        if (size == 0) return true; // the rest is compared as it is
        const Form form = formOf(at, size);
        if (form == Form::Other) return false;
        if (form == Form::Nested) return isCanonicalNested(encoded);
        at += size;
        left -= size;
    }
    return true;
}

} // namespace kiv::internal
