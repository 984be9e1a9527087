#include "kiv/store/CanonicalKey.h"

#include <cstddef>
#include <memory_resource>
#include <vector>

namespace kiv::internal {

namespace {

// What goes on behind a nested item.
struct Level {
    const uint8_t* end;   // of the outer item
    uint8_t* lengthField; // of the nested item, in the converted bytes
};

// A stack instead of recursion: keys may nest once every five bytes. The first levels stay off the heap.
class Levels {
public:
    bool empty() const { return m_levels.empty(); }
    void push(const Level& level) { m_levels.push_back(level); }
    Level pop() {
        const Level level = m_levels.back();
        m_levels.pop_back();
        return level;
    }

private:
    alignas(Level) std::byte m_space[32 * sizeof(Level)];
    std::pmr::monotonic_buffer_resource m_memory{m_space, sizeof(m_space)};
    std::pmr::vector<Level> m_levels{&m_memory};
};

template <class T>
uint8_t* put(uint8_t* to, ValueType type, T payload) {
    *to = static_cast<uint8_t>(type);
    storeUnaligned(to + 1, payload);
    return to + 1 + sizeof(T);
}

uint8_t* putInteger(uint8_t* to, int64_t value) {
    if (value == static_cast<int8_t>(value)) return put(to, ValueType::Int8, static_cast<int8_t>(value));
    if (value == static_cast<int16_t>(value)) return put(to, ValueType::Int16, static_cast<int16_t>(value));
    if (value == static_cast<int32_t>(value)) return put(to, ValueType::Int32, static_cast<int32_t>(value));
    return put(to, ValueType::Int64, value);
}

// Writes a complete element that is no nested item.
uint8_t* putElement(uint8_t* to, const uint8_t* element, unsigned size) {
    switch (static_cast<ValueType>(*element)) {
    case ValueType::Int64:
        return putInteger(to, loadUnaligned<int64_t>(element + 1));
    case ValueType::Int32:
        return putInteger(to, loadUnaligned<int32_t>(element + 1));
    case ValueType::Int16:
        return putInteger(to, loadUnaligned<int16_t>(element + 1));
    case ValueType::Float: {
        auto bits = loadUnaligned<uint64_t>(element + 1);
        if (bits == bitsOfNegativeZero) bits = 0;
        return put(to, ValueType::Float, isNaN(bits) ? bitsOfCanonicalNaN : bits);
    }
    default:
        std::memcpy(to, element, size);
        return to + size;
    }
}

} // namespace

KIV_NOINLINE bool CanonicalKey::isCanonicalNested(const ConstByteSpan& encoded) {
    Levels outer;
    const uint8_t* at = encoded.getBytePointer();
    const uint8_t* end = at + encoded.getSize();
    for (;;) {
        const unsigned size = sizeOfElement(at, static_cast<unsigned>(end - at));
        const Form form = size == 0 ? Form::Canonical : formOf(at, size);
        if (form == Form::Other) return false;
        if (form == Form::Nested) {
            outer.push({end, nullptr});
            end = at + size;
            at += 5;
        } else if (size != 0) {
            at += size;
        } else {
            if (outer.empty()) return true;
            at = end;
            end = outer.pop().end;
        }
    }
}

// The canonical form is never longer: the bytes are written where the length is known to suffice.
KIV_NOINLINE ConstByteSpan CanonicalKey::convert(const ConstByteSpan& encoded) {
    m_converted.clear();
    m_converted.resizePlain(encoded.getSize());
    Levels outer;
    uint8_t* const start = m_converted.getPlainBytePointer();
    uint8_t* to = start;
    const uint8_t* at = encoded.getBytePointer();
    const uint8_t* end = at + encoded.getSize();
    for (;;) {
        const unsigned size = sizeOfElement(at, static_cast<unsigned>(end - at));
        if (size == 0) {
            const auto rest = static_cast<size_t>(end - at);
            if (rest != 0) std::memcpy(to, at, rest);
            to += rest;
            if (outer.empty()) break;
            const Level level = outer.pop();
            storeUnaligned(level.lengthField, static_cast<uint32_t>(to - level.lengthField - 4));
            at = end;
            end = level.end;
        } else if (*at == static_cast<uint8_t>(ValueType::SubItem)) {
            *to = *at;
            outer.push({end, to + 1});
            to += 5;
            end = at + size;
            at += 5;
        } else {
            to = putElement(to, at, size);
            at += size;
        }
    }
    return {start, static_cast<unsigned>(to - start)};
}

} // namespace kiv::internal
