#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kiv::internal {

// Turns the bytes of a word around: the first in memory becomes the most significant.
constexpr uint64_t bigEndian(uint64_t value) {
    value = (value & 0x00FF00FF00FF00FF) << 8 | (value >> 8 & 0x00FF00FF00FF00FF);
    value = (value & 0x0000FFFF0000FFFF) << 16 | (value >> 16 & 0x0000FFFF0000FFFF);
    return value << 32 | value >> 32;
}

// A key as bytes whose plain order is the order of keys: a < b exactly when the bytes of a are lexicographically below
// those of b, and equal keys, in whatever form their numbers are, have equal bytes. So pages compare words instead of
// elements. It refers to the encoding it was made from.
class SortKey {
public:
    KIV_API explicit SortKey(ConstByteSpan encoded);
    explicit SortKey(const Item& key) : SortKey(key.getConstByteSpan()) {}
    SortKey(const SortKey&) = delete;
    SortKey& operator=(const SortKey&) = delete;

    const uint8_t* data() const { return m_bytes; }
    size_t size() const { return m_size; }
    ConstByteSpan getEncoded() const { return m_encoded; }
    // The eight bytes at `offset` as a number that orders like them; zeros stand behind the end. Requires: offset <=
    // size().
    uint64_t headAt(size_t offset) const { return bigEndian(loadUnaligned<uint64_t>(m_bytes + offset)); }

    // Behind size() there are zeros this far.
    static constexpr size_t padding = 8;

private:
    static constexpr size_t inlineSize = 256;

    ConstByteSpan m_encoded;
    uint8_t* m_bytes;
    size_t m_size;
    std::unique_ptr<uint8_t[]> m_heap;
    uint8_t m_inline[inlineSize];
};

} // namespace kiv::internal
