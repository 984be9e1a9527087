#pragma once

// The hot paths of Item and its iterator, in the header so that building and reading records needs no calls.

#include "kiv/data/Item.h"

#include <bit>

namespace kiv {

namespace internal {

// How an element's size is found from its type byte: a fixed size, by its terminating zero, or by its length field.
inline constexpr uint8_t elementInvalid = 0;
inline constexpr uint8_t elementText = 254;
inline constexpr uint8_t elementCounted = 255;

struct ElementTable {
    uint8_t kind[256] = {};
    // How far the payload of an integer is shifted to sign-extend it; 255 for all other types.
    uint8_t integerShift[256] = {};

    constexpr ElementTable() {
        for (uint8_t& shift : integerShift) shift = 255;
        kind[1] = kind[2] = 9;
        kind[3] = kind[12] = elementText;
        kind[4] = kind[5] = kind[9] = kind[193] = elementCounted;
        kind[6] = 5;
        kind[7] = 3;
        kind[8] = 2;
        kind[10] = 33;
        kind[11] = kind[13] = kind[14] = kind[192] = kind[254] = kind[255] = 1;
        integerShift[1] = 0;
        integerShift[6] = 32;
        integerShift[7] = 48;
        integerShift[8] = 56;
    }
};
inline constexpr ElementTable elementTable;

static_assert(std::endian::native == std::endian::little, "encodings are copied as they lie in memory");

template <class T>
T loadUnaligned(const void* from) {
    T value;
    std::memcpy(&value, from, sizeof(T));
    return value;
}

template <class T>
void storeUnaligned(void* to, T value) {
    std::memcpy(to, &value, sizeof(T));
}

// The index of the first zero byte, or `size`. Short texts are the rule, so words are searched in place, without a
// call.
inline unsigned findZero(const uint8_t* bytes, unsigned size) {
    unsigned at = 0;
    for (; size - at >= 8; at += 8) {
        const uint64_t word = loadUnaligned<uint64_t>(bytes + at);
        const uint64_t zeros = (word - 0x0101010101010101) & ~word & 0x8080808080808080;
        if (zeros != 0) return at + (static_cast<unsigned>(std::countr_zero(zeros)) >> 3);
    }
    while (at < size && bytes[at] != 0) ++at;
    return at;
}

// The size of the element at `bytes`, 0 when there is no complete one within `left` bytes.
inline unsigned sizeOfElement(const uint8_t* bytes, unsigned left) {
    if (left == 0) return 0;
    const uint8_t kind = elementTable.kind[bytes[0]];
    if (kind < elementText) return kind <= left ? kind : 0;
    if (kind == elementText) {
        const unsigned length = findZero(bytes + 1, left - 1);
        return length < left - 1 ? length + 2 : 0;
    }
    if (left < 5) return 0;
    const auto length = loadUnaligned<uint32_t>(bytes + 1);
    return length <= left - 5 ? length + 5 : 0;
}

} // namespace internal

inline uint8_t* Item::appendPlain(unsigned size) {
    if (uint64_t{m_size} + size > m_capacity) {
        const Run run{nullptr, size};
        appendRuns(&run, 1);
    } else {
        m_size += size;
    }
    return m_data + m_size - size;
}

inline void Item::addScalar(ValueType type, const void* eightBytes) {
    uint8_t* to = appendPlain(9);
    to[0] = static_cast<uint8_t>(type);
    std::memcpy(to + 1, eightBytes, 8);
}

inline void Item::addInteger(long long value) {
    unsigned size = 9;
    auto type = ValueType::Int64;
    if (value == static_cast<int8_t>(value)) {
        size = 2;
        type = ValueType::Int8;
    } else if (value == static_cast<int16_t>(value)) {
        size = 3;
        type = ValueType::Int16;
    } else if (value == static_cast<int32_t>(value)) {
        size = 5;
        type = ValueType::Int32;
    }
    if (uint64_t{m_size} + 9 <= m_capacity) { // room for the longest form: one store of eight bytes serves all
        uint8_t* to = m_data + m_size;
        to[0] = static_cast<uint8_t>(type);
        internal::storeUnaligned(to + 1, value);
        m_size += size;
    } else {
        uint8_t* to = appendPlain(size);
        to[0] = static_cast<uint8_t>(type);
        std::memcpy(to + 1, &value, size - 1);
    }
}

inline void Item::addInternal(ValueType type, const uint8_t* a, unsigned aSize, const uint8_t* b, unsigned bSize) {
    const uint64_t size = uint64_t{1} + aSize + bSize;
    if (m_size + size > m_capacity) {
        const Run runs[] = {{&type, 1}, {a, aSize}, {b, bSize}};
        appendRuns(runs, 3);
        return;
    }
    uint8_t* to = m_data + m_size;
    *to = static_cast<uint8_t>(type);
    if (aSize != 0) std::memcpy(to + 1, a, aSize);
    if (bSize != 0) std::memcpy(to + 1 + aSize, b, bSize);
    m_size += static_cast<uint32_t>(size);
}

inline void Item::addInternal(ValueType type, unsigned length, const uint8_t* bytes, unsigned size) {
    const uint64_t needed = uint64_t{5} + size;
    if (m_size + needed > m_capacity) {
        const Run runs[] = {{&type, 1}, {&length, 4}, {bytes, size}};
        appendRuns(runs, 3);
        return;
    }
    uint8_t* to = m_data + m_size;
    *to = static_cast<uint8_t>(type);
    internal::storeUnaligned(to + 1, length);
    if (size != 0) std::memcpy(to + 5, bytes, size);
    m_size += static_cast<uint32_t>(needed);
}

inline void Item::addText(ValueType type, const char* text, size_t size) {
    const uint64_t needed = uint64_t{2} + size;
    if (m_size + needed > m_capacity) {
        const Run runs[] = {{&type, 1}, {text, size}, {"", 1}};
        appendRuns(runs, 3);
        return;
    }
    uint8_t* to = m_data + m_size;
    *to = static_cast<uint8_t>(type);
    std::memcpy(to + 1, text, size);
    to[1 + size] = 0;
    m_size += static_cast<uint32_t>(needed);
}

inline void Item::addString(const char* text) {
    if (!text) text = "";
    addText(ValueType::String, text, std::strlen(text));
}

inline void Item::addPrefix(const char* text) {
    if (!text) text = "";
    addText(ValueType::Prefix, text, std::strlen(text));
}

inline void Item::copyBytesFrom(const Item& other) {
    if (other.m_size <= inlineCapacity && m_data == m_inline) {
        if (other.m_data == other.m_inline) {
            std::memcpy(m_inline, other.m_inline, inlineCapacity); // a fixed size is a few moves
        } else {
            std::memcpy(m_inline, other.m_data, other.m_size);
        }
        m_size = other.m_size;
    } else {
        setPlain(other.getConstByteSpan());
    }
}

inline void Item::takeFrom(Item& other) noexcept {
    if (other.m_data == other.m_inline) {
        m_data = m_inline;
        std::memcpy(m_inline, other.m_inline, inlineCapacity);
        m_capacity = inlineCapacity;
        m_size = other.m_size;
        return;
    }
    m_data = other.m_data;
    m_capacity = other.m_capacity;
    m_size = other.m_size;
    m_ownsHeap = other.m_ownsHeap;
    if (other.m_ownsHeap) {
        other.m_data = other.m_inline;
        other.m_capacity = inlineCapacity;
        other.m_size = 0;
        other.m_ownsHeap = false;
    }
}

inline ItemIterator Item::getIterator() const& {
    return Iterator(*this);
}

inline unsigned ItemIterator::sizeOfText(const uint8_t* bytes, unsigned left) const {
    // Still true when the item changed meanwhile? A zero at the remembered end within the bytes keeps every reader
    // inside.
    if (m_textOffset == m_offset && m_textSize <= left && bytes[m_textSize - 1] == 0) return m_textSize;
    const unsigned size = internal::sizeOfElement(bytes, left);
    if (size != 0) {
        m_textOffset = m_offset;
        m_textSize = size;
    }
    return size;
}

inline ItemIterator::Element ItemIterator::element() const {
    if (!m_item || static_cast<unsigned>(m_offset) >= m_item->m_size) return {nullptr, 0};
    const uint8_t* bytes = m_item->m_data + m_offset;
    const unsigned left = m_item->m_size - static_cast<unsigned>(m_offset);
    const uint8_t kind = internal::elementTable.kind[bytes[0]];
    if (kind == internal::elementText) return {bytes, sizeOfText(bytes, left)};
    return {bytes, internal::sizeOfElement(bytes, left)};
}

inline unsigned ItemIterator::getSize() const {
    return element().size;
}

inline ValueType ItemIterator::getType() const {
    const Element here = element();
    return here.size != 0 ? static_cast<ValueType>(here.bytes[0]) : ValueType::Invalid;
}

inline bool ItemIterator::readInteger(long long& out) {
    if (!m_item || static_cast<uint64_t>(static_cast<unsigned>(m_offset)) + 9 > m_item->m_size)
        return readIntegerSlow(out);
    const uint8_t* bytes = m_item->m_data + m_offset;
    const unsigned shift = internal::elementTable.integerShift[bytes[0]];
    if (shift > 56) return false;
    out = static_cast<long long>(internal::loadUnaligned<uint64_t>(bytes + 1) << shift) >> shift;
    advance(9 - shift / 8);
    return true;
}

inline bool ItemIterator::asFloat(double& out) {
    const Element here = element();
    if (here.size == 0 || here.bytes[0] != static_cast<uint8_t>(ValueType::Float)) return false;
    out = internal::loadUnaligned<double>(here.bytes + 1);
    advance(here.size);
    return true;
}

inline const char* ItemIterator::asWeakCStr() {
    const Element here = element();
    if (here.size == 0 || internal::elementTable.kind[here.bytes[0]] != internal::elementText) return nullptr;
    advance(here.size);
    return reinterpret_cast<const char*>(here.bytes + 1);
}

inline bool ItemIterator::asWeakBytes(ValueType type, ConstByteSpan& out) {
    const Element here = element();
    const bool counted = internal::elementTable.kind[static_cast<uint8_t>(type)] == internal::elementCounted;
    if (here.size == 0 || here.bytes[0] != static_cast<uint8_t>(type) || !counted) return false;
    out = {here.bytes + 5, here.size - 5};
    advance(here.size);
    return true;
}

inline const uint8_t* ItemIterator::asWeakBuffer(unsigned& size) {
    ConstByteSpan bytes;
    if (!asWeakBytes(ValueType::Buffer, bytes)) return nullptr;
    size = bytes.getSize();
    return bytes.getBytePointer();
}

inline bool ItemIterator::asWeakSubItem(Item& out) {
    ConstByteSpan bytes;
    if (&out == m_item || !asWeakBytes(ValueType::SubItem, bytes)) return false;
    out.setStore(nullptr);
    out.setPlainExternalBuffer(bytes);
    return true;
}

} // namespace kiv
