#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/data/Item.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kiv::internal {

// A key as bytes whose plain order is the order of keys: a < b exactly when the bytes of a are lexicographically below
// those of b, and equal keys, in whatever form their numbers are, have equal bytes. So pages compare words instead of
// elements. It refers to the encoding it was made from.
class SortKey {
public:
    explicit SortKey(ConstByteSpan encoded);
    explicit SortKey(const Item& key) : SortKey(key.getConstByteSpan()) {}
    SortKey(const SortKey&) = delete;
    SortKey& operator=(const SortKey&) = delete;

    const uint8_t* data() const { return m_bytes; }
    size_t size() const { return m_size; }
    ConstByteSpan getEncoded() const { return m_encoded; }
    // The four bytes at `offset` as a number that orders like them; zeros stand behind the end. Requires: offset <=
    // size().
    uint32_t headAt(size_t offset) const { return headOf(m_bytes + offset); }

    // Behind size() there are zeros this far.
    static constexpr size_t padding = 8;
    static uint32_t headOf(const uint8_t* bytes) {
        return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
    }

private:
    static constexpr size_t inlineSize = 256;

    ConstByteSpan m_encoded;
    uint8_t* m_bytes;
    size_t m_size;
    std::unique_ptr<uint8_t[]> m_heap;
    uint8_t m_inline[inlineSize];
};

} // namespace kiv::internal
