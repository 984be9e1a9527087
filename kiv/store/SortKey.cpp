// Each element becomes a code that orders like its type, and a payload that orders like its value and is no prefix of
// another's:
//   integers   the code tells sign and number of significant bytes; these follow, the most significant first
//   floats     eight bytes, the most significant first, with all bits of negative and the sign bit of other numbers
//              inverted; one zero, and one NaN above all numbers
//   texts      their bytes and the zero
//   counted    their bytes, a zero followed by 255, and two zeros for the end
//   GUIDs      their bytes, the last first
//   nested     their elements, then a zero and what the end is: zero, or one and the undecodable rest as if counted
// An undecodable rest of the whole key is a zero and its bytes.

#include "kiv/store/SortKey.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace kiv::internal {

namespace {

enum Code : uint8_t {
    codeRest = 0,
    codeMinusOne = 0x0F, // less a byte's length each below
    codeZero = 0x10,     // and a byte's length each above
    codeFloat = 0x20,
    codeString,
    codeBuffer,
    codePointer,
    codeSubItem,
    codeGUID,
    codeNIL,
    codePrefix,
    codeFalse,
    codeTrue,
    codeMeta,
    codeReferee,
    codeWildcard,
    codeEnd,
};

// Writers may store eight bytes where fewer count: the room has padding.

uint8_t* writeInteger(uint8_t* to, int64_t value) {
    const auto bits = static_cast<uint64_t>(value);
    const uint64_t magnitude = value < 0 ? ~bits : bits;
    const int length = (64 - std::countl_zero(magnitude) + 7) / 8;
    *to++ = static_cast<uint8_t>(value < 0 ? codeMinusOne - length : codeZero + length);
    if (length != 0) storeUnaligned(to, bigEndian(bits << (64 - 8 * length)));
    return to + length;
}

uint8_t* writeFloat(uint8_t* to, double value) {
    auto bits = std::bit_cast<uint64_t>(value);
    constexpr uint64_t signBit = uint64_t{1} << 63;
    if (value == 0) bits = 0;
    bits = std::isnan(value) ? ~uint64_t{0} : (bits & signBit) != 0 ? ~bits : bits | signBit;
    *to++ = codeFloat;
    storeUnaligned(to, bigEndian(bits));
    return to + 8;
}

uint8_t* writeText(uint8_t* to, Code code, const uint8_t* element, unsigned size) {
    *to++ = code;
    copyShort(to, element + 1, size - 1);
    return to + size - 1;
}

uint8_t* writeEscaped(uint8_t* to, const uint8_t* bytes, size_t size) {
    while (size != 0) {
        const auto* zero = static_cast<const uint8_t*>(std::memchr(bytes, 0, size));
        const size_t run = zero ? static_cast<size_t>(zero - bytes) + 1 : size;
        std::memcpy(to, bytes, run);
        to += run;
        if (zero) *to++ = 0xFF;
        bytes += run;
        size -= run;
    }
    *to++ = 0;
    *to++ = 0;
    return to;
}

uint8_t* writeCounted(uint8_t* to, Code code, const uint8_t* element, unsigned size) {
    *to++ = code;
    return writeEscaped(to, element + 5, size - 5);
}

uint8_t* writeGUID(uint8_t* to, const uint8_t* element) {
    *to++ = codeGUID;
    for (int word = 3; word >= 0; --word, to += 8) {
        storeUnaligned(to, bigEndian(loadUnaligned<uint64_t>(element + 1 + word * 8)));
    }
    return to;
}

uint8_t* writeRestOfNested(uint8_t* to, const uint8_t* rest, size_t size) {
    *to++ = codeRest;
    *to++ = size != 0;
    return size != 0 ? writeEscaped(to, rest, size) : to;
}

// An element but nested items. Requires: it is complete.
uint8_t* writeElement(uint8_t* to, const uint8_t* element, unsigned size) {
    switch (static_cast<ValueType>(*element)) {
    case ValueType::Int8:
        return writeInteger(to, static_cast<int8_t>(element[1]));
    case ValueType::Int16:
        return writeInteger(to, loadUnaligned<int16_t>(element + 1));
    case ValueType::Int32:
        return writeInteger(to, loadUnaligned<int32_t>(element + 1));
    case ValueType::Int64:
        return writeInteger(to, loadUnaligned<int64_t>(element + 1));
    case ValueType::Float:
        return writeFloat(to, loadUnaligned<double>(element + 1));
    case ValueType::String:
        return writeText(to, codeString, element, size);
    case ValueType::Prefix:
        return writeText(to, codePrefix, element, size);
    case ValueType::Buffer:
        return writeCounted(to, codeBuffer, element, size);
    case ValueType::Pointer:
        return writeCounted(to, codePointer, element, size);
    case ValueType::Referee:
        return writeCounted(to, codeReferee, element, size);
    case ValueType::GUID:
        return writeGUID(to, element);
    case ValueType::NIL:
        return *to = codeNIL, to + 1;
    case ValueType::False:
        return *to = codeFalse, to + 1;
    case ValueType::True:
        return *to = codeTrue, to + 1;
    case ValueType::Meta:
        return *to = codeMeta, to + 1;
    case ValueType::Wildcard:
        return *to = codeWildcard, to + 1;
    case ValueType::End:
        return *to = codeEnd, to + 1;
    case ValueType::SubItem:
    case ValueType::Invalid:
        break;
    }
    return to;
}

uint8_t* writeKey(uint8_t* to, const uint8_t* at, const uint8_t* end) {
    std::vector<const uint8_t*> outerEnds; // of the items around the present one
    for (;;) {
        const unsigned size = sizeOfElement(at, static_cast<unsigned>(end - at));
        if (size == 0) {
            const auto rest = static_cast<size_t>(end - at);
            if (outerEnds.empty()) {
                if (rest == 0) return to;
                *to++ = codeRest;
                std::memcpy(to, at, rest);
                return to + rest;
            }
            to = writeRestOfNested(to, at, rest);
            at = end;
            end = outerEnds.back();
            outerEnds.pop_back();
        } else if (*at == static_cast<uint8_t>(ValueType::SubItem)) {
            *to++ = codeSubItem;
            outerEnds.push_back(end);
            end = at + size;
            at += 5;
        } else {
            to = writeElement(to, at, size);
            at += size;
        }
    }
}

} // namespace

SortKey::SortKey(ConstByteSpan encoded) : m_encoded(encoded), m_bytes(m_inline) {
    // No element grows to more than twice its size.
    const size_t room = size_t{2} * encoded.getSize() + padding;
    if (room > inlineSize) {
        m_heap = std::make_unique_for_overwrite<uint8_t[]>(room);
        m_bytes = m_heap.get();
    }
    const uint8_t* const bytes = encoded.getBytePointer();
    uint8_t* const end = writeKey(m_bytes, bytes, bytes + encoded.getSize());
    m_size = static_cast<size_t>(end - m_bytes);
    storeUnaligned(end, uint64_t{0});
}

} // namespace kiv::internal
