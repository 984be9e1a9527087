#pragma once

// The hot paths of Item and its iterator, in the header so that building and reading records needs no calls.

#include "kiv/data/Item.h"

#include <bit>
#include <cassert>

namespace kiv {

namespace internal {

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

template <size_t Size>
struct Bytes {
    uint8_t bytes[Size];
};

// Copies or compares without a call what fits two words or two pairs of them: the last word may overlap the first. The
// source of a copy may overlap its target.
template <class Word>
void copyTwo(uint8_t* to, const uint8_t* from, size_t size) {
    const auto first = loadUnaligned<Word>(from), last = loadUnaligned<Word>(from + size - sizeof(Word));
    storeUnaligned(to, first);
    storeUnaligned(to + size - sizeof(Word), last);
}

inline void copyShort(uint8_t* to, const void* from, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(from);
    if (size > 32) {
        std::memmove(to, bytes, size);
    } else if (size >= 16) {
        copyTwo<Bytes<16>>(to, bytes, size);
    } else if (size >= 8) {
        copyTwo<uint64_t>(to, bytes, size);
    } else if (size >= 4) {
        copyTwo<uint32_t>(to, bytes, size);
    } else if (size != 0) {
        const uint8_t first = bytes[0], middle = bytes[size / 2], last = bytes[size - 1];
        to[0] = first;
        to[size / 2] = middle;
        to[size - 1] = last;
    }
}

inline uint64_t differenceAt(const uint8_t* a, const uint8_t* b, size_t at) {
    return loadUnaligned<uint64_t>(a + at) ^ loadUnaligned<uint64_t>(b + at);
}

inline bool isSameShort(const uint8_t* a, const uint8_t* b, size_t size) {
    if (size > 32) return std::memcmp(a, b, size) == 0;
    if (size >= 16) {
        return (differenceAt(a, b, 0) | differenceAt(a, b, 8) | differenceAt(a, b, size - 16) |
                differenceAt(a, b, size - 8)) == 0;
    }
    if (size >= 8) return (differenceAt(a, b, 0) | differenceAt(a, b, size - 8)) == 0;
    for (size_t i = 0; i < size; ++i) {
        if (a[i] != b[i]) return false;
    }
    return true;
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

// The size of a text element, 0 when its zero byte is not within `left` bytes. Requires: left > 0.
inline unsigned sizeOfText(const uint8_t* bytes, unsigned left) {
    const unsigned length = findZero(bytes + 1, left - 1);
    return length < left - 1 ? length + 2 : 0;
}

// The size of an element with a length field, 0 when it does not end within `left` bytes.
inline unsigned sizeOfCounted(const uint8_t* bytes, unsigned left) {
    if (left < 5) return 0;
    const auto length = loadUnaligned<uint32_t>(bytes + 1);
    return length <= left - 5 ? length + 5 : 0;
}

// The size of the element at `bytes`, 0 when there is no complete one within `left` bytes. Branches, not a table of
// sizes: a predicted branch lets the next element begin before this one's type byte has been loaded.
inline unsigned sizeOfElement(const uint8_t* bytes, unsigned left) {
    if (left == 0) return 0;
    switch (static_cast<ValueType>(bytes[0])) {
    case ValueType::Int8:
        return left >= 2 ? 2 : 0;
    case ValueType::Int16:
        return left >= 3 ? 3 : 0;
    case ValueType::Int32:
        return left >= 5 ? 5 : 0;
    case ValueType::Int64:
    case ValueType::Float:
        return left >= 9 ? 9 : 0;
    case ValueType::String:
    case ValueType::Prefix:
        return sizeOfText(bytes, left);
    case ValueType::Buffer:
    case ValueType::Pointer:
    case ValueType::SubItem:
    case ValueType::Referee:
        return sizeOfCounted(bytes, left);
    case ValueType::GUID:
        return left >= 33 ? 33 : 0;
    case ValueType::NIL:
    case ValueType::False:
    case ValueType::True:
    case ValueType::Meta:
    case ValueType::Wildcard:
    case ValueType::End:
        return 1;
    case ValueType::Invalid:
        break;
    }
    return 0;
}

inline bool isText(uint8_t type) {
    return type == static_cast<uint8_t>(ValueType::String) || type == static_cast<uint8_t>(ValueType::Prefix);
}

inline bool isInteger(uint8_t type) {
    return type == static_cast<uint8_t>(ValueType::Int64) ||
           (type >= static_cast<uint8_t>(ValueType::Int32) && type <= static_cast<uint8_t>(ValueType::Int8));
}

// Has a length field.
inline bool isCounted(uint8_t type) {
    return type == static_cast<uint8_t>(ValueType::Buffer) || type == static_cast<uint8_t>(ValueType::SubItem) ||
           type == static_cast<uint8_t>(ValueType::Pointer) || type == static_cast<uint8_t>(ValueType::Referee);
}

} // namespace internal

// The writers keep the size in a register, store it last, and store nothing else than bytes: these may alias every
// member, so that whatever a member is needed for after a byte has been written is loaded again.

inline uint8_t* Item::appendPlain(unsigned size) {
    const uint32_t at = m_size;
    if (uint64_t{at} + size > m_capacity) {
        const Run run{nullptr, size};
        appendRuns(&run, 1);
        return m_data + at;
    }
    m_size = at + size;
    return m_data + at;
}

inline void Item::addFloat(double value) {
    const uint32_t at = m_size;
    if (uint64_t{at} + 9 > m_capacity) {
        addFloatGrowing(value);
        return;
    }
    uint8_t* to = m_data + at;
    to[0] = static_cast<uint8_t>(ValueType::Float);
    internal::storeUnaligned(to + 1, value);
    m_size = at + 9;
}

inline void Item::addInteger(long long value) {
    const uint32_t at = m_size;
    if (uint64_t{at} + 9 > m_capacity) { // maybe too little for the longest form
        addIntegerGrowing(value);
        return;
    }
    // One store of type and payload together: what it writes behind a shorter form is not yet in use.
    uint8_t* to = m_data + at;
    const auto payload = static_cast<uint64_t>(value) << 8;
    if (value == static_cast<int8_t>(value)) {
        internal::storeUnaligned(to, static_cast<uint16_t>(payload | static_cast<uint8_t>(ValueType::Int8)));
        m_size = at + 2;
    } else if (value == static_cast<int16_t>(value)) {
        internal::storeUnaligned(to, static_cast<uint32_t>(payload | static_cast<uint8_t>(ValueType::Int16)));
        m_size = at + 3;
    } else if (value == static_cast<int32_t>(value)) {
        internal::storeUnaligned(to, payload | static_cast<uint8_t>(ValueType::Int32));
        m_size = at + 5;
    } else {
        to[0] = static_cast<uint8_t>(ValueType::Int64);
        internal::storeUnaligned(to + 1, value);
        m_size = at + 9;
    }
}

inline void Item::addInternal(ValueType type) {
    const uint32_t at = m_size;
    if (at >= m_capacity) {
        addGrowing(type, nullptr, 0, nullptr, 0);
        return;
    }
    m_data[at] = static_cast<uint8_t>(type);
    m_size = at + 1;
}

inline void Item::addInternal(ValueType type, const uint8_t* a, unsigned aSize, const uint8_t* b, unsigned bSize) {
    const uint32_t at = m_size;
    const uint64_t end = uint64_t{at} + 1 + aSize + bSize;
    if (end > m_capacity) {
        addGrowing(type, a, aSize, b, bSize);
        return;
    }
    uint8_t* to = m_data + at;
    *to = static_cast<uint8_t>(type);
    internal::copyShort(to + 1, a, aSize);
    internal::copyShort(to + 1 + aSize, b, bSize);
    m_size = static_cast<uint32_t>(end);
}

inline void Item::addInternal(ValueType type, unsigned length, const uint8_t* bytes, unsigned size) {
    const uint32_t at = m_size;
    const uint64_t end = uint64_t{at} + 5 + size;
    if (end > m_capacity) {
        addCountedGrowing(type, length, bytes, size);
        return;
    }
    uint8_t* to = m_data + at;
    *to = static_cast<uint8_t>(type);
    internal::storeUnaligned(to + 1, length);
    internal::copyShort(to + 5, bytes, size);
    m_size = static_cast<uint32_t>(end);
}

inline void Item::addText(ValueType type, const char* text, size_t size) {
    const uint32_t at = m_size;
    const uint64_t end = uint64_t{at} + 2 + size;
    if (end > m_capacity) {
        addGrowing(type, text, size, "", 1);
        return;
    }
    uint8_t* to = m_data + at;
    *to = static_cast<uint8_t>(type);
    internal::copyShort(to + 1, text, size);
    to[1 + size] = 0;
    m_size = static_cast<uint32_t>(end);
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
        if (other.isInline()) {
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
    if (other.isInline()) {
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

inline void Item::clear() {
    if (m_capacity == 0) useInline();
    m_size = 0;
}

inline ItemIterator Item::getIterator() const& {
    return Iterator(*this);
}

inline unsigned Item::decodeGetSizeOfNextElement(int offset) const {
    return Iterator(*this, offset).getSize();
}

inline void Item::setPlainExternalBuffer(const ConstByteSpan& encoded) {
    assert(encoded.empty() || !holds(encoded.getBytePointer()));
    if (m_ownsHeap) freeHeap();
    m_ownsHeap = false;
    m_data = const_cast<uint8_t*>(encoded.getBytePointer());
    m_capacity = 0;
    m_size = limited(encoded.getSize());
}

// The readers call nothing that sees the iterator itself, so that compilers keep it in registers.

inline ItemIterator::Rest ItemIterator::rest() const {
    if (!m_item || static_cast<unsigned>(m_offset) >= m_item->getPlainSize()) return {nullptr, 0};
    return {m_item->getPlainBytePointer() + m_offset, m_item->getPlainSize() - static_cast<unsigned>(m_offset)};
}

inline bool ItemIterator::startsWith(const Rest& here, ValueType type, unsigned size) {
    return here.size >= size && here.bytes[0] == static_cast<uint8_t>(type);
}

inline unsigned ItemIterator::sizeOfText(const Rest& here) const {
    // Still true when the item changed meanwhile? A zero at the remembered end within the bytes keeps every reader
    // inside.
    if (m_textOffset == m_offset && m_textSize <= here.size && here.bytes[m_textSize - 1] == 0) return m_textSize;
    const unsigned size = internal::sizeOfText(here.bytes, here.size);
    if (size != 0) {
        m_textOffset = m_offset;
        m_textSize = size;
    }
    return size;
}

inline unsigned ItemIterator::getSize() const {
    const Rest here = rest();
    if (here.size != 0 && internal::isText(here.bytes[0])) return sizeOfText(here);
    return internal::sizeOfElement(here.bytes, here.size);
}

inline ValueType ItemIterator::getType() const {
    return getSize() != 0 ? static_cast<ValueType>(rest().bytes[0]) : ValueType::Invalid;
}

inline bool ItemIterator::skip(int count) {
    for (; count > 0; --count) {
        const unsigned size = getSize();
        if (size == 0) return false;
        advance(size);
    }
    return true;
}

inline bool ItemIterator::readInteger(long long& out) {
    const Rest here = rest();
    if (startsWith(here, ValueType::Int8, 2)) {
        out = static_cast<int8_t>(here.bytes[1]);
        advance(2);
    } else if (startsWith(here, ValueType::Int16, 3)) {
        out = internal::loadUnaligned<int16_t>(here.bytes + 1);
        advance(3);
    } else if (startsWith(here, ValueType::Int32, 5)) {
        out = internal::loadUnaligned<int32_t>(here.bytes + 1);
        advance(5);
    } else if (startsWith(here, ValueType::Int64, 9)) {
        out = internal::loadUnaligned<int64_t>(here.bytes + 1);
        advance(9);
    } else {
        return false;
    }
    return true;
}

inline bool ItemIterator::asFloat(double& out) {
    const Rest here = rest();
    if (!startsWith(here, ValueType::Float, 9)) return false;
    out = internal::loadUnaligned<double>(here.bytes + 1);
    advance(9);
    return true;
}

inline bool ItemIterator::asBool(bool& out) {
    const Rest here = rest();
    if (!startsWith(here, ValueType::True, 1) && !startsWith(here, ValueType::False, 1)) return false;
    out = here.bytes[0] == static_cast<uint8_t>(ValueType::True);
    advance(1);
    return true;
}

inline bool ItemIterator::asNIL() {
    if (!startsWith(rest(), ValueType::NIL, 1)) return false;
    advance(1);
    return true;
}

inline bool ItemIterator::asGUID(GUID& out) {
    const Rest here = rest();
    if (!startsWith(here, ValueType::GUID, 33)) return false;
    std::memcpy(out.getBytePointer(), here.bytes + 1, sizeof(GUID));
    advance(33);
    return true;
}

inline const char* ItemIterator::asWeakCStr() {
    const Rest here = rest();
    const unsigned size = here.size != 0 && internal::isText(here.bytes[0]) ? sizeOfText(here) : 0;
    if (size == 0) return nullptr;
    advance(size);
    return reinterpret_cast<const char*>(here.bytes + 1);
}

inline bool ItemIterator::asWeakBytes(ValueType type, ConstByteSpan& out) {
    const bool counted = type == ValueType::Buffer || type == ValueType::Pointer || type == ValueType::SubItem ||
                         type == ValueType::Referee;
    const Rest here = rest();
    const unsigned size = counted && startsWith(here, type, 5) ? internal::sizeOfCounted(here.bytes, here.size) : 0;
    if (size == 0) return false;
    out = {here.bytes + 5, size - 5};
    advance(size);
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
