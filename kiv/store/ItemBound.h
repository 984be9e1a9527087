#pragma once

#include "kiv/data/Item.h"

#include <cassert>
#include <cstring>

namespace kiv {

// The beginning of a key and one marker behind it: the bounds between which a store's navigation looks. Keys that are
// not long need no memory for it.
class ItemBound {
public:
    ItemBound() = default;
    ItemBound(const Item& key, ValueType marker) { set(key, key.getPlainSize(), marker); }
    ItemBound(const ItemBound&) = delete;
    ItemBound& operator=(const ItemBound&) = delete;

    void set(const Item& key, unsigned size, ValueType marker) {
        assert(size <= key.getPlainSize());
        uint8_t* bytes = m_bytes;
        if (size < sizeof(m_bytes)) {
            m_bound.setPlainExternalBuffer({bytes, size + 1});
        } else {
            m_bound.clear(); // borrows nothing now
            m_bound.resizePlain(size + 1);
            bytes = m_bound.getPlainBytePointer();
        }
        if (size != 0) std::memcpy(bytes, key.getPlainBytePointer(), size);
        bytes[size] = static_cast<uint8_t>(marker);
    }
    const Item& get() const { return m_bound; }
    operator const Item&() const { return m_bound; }

private:
    Item m_bound;
    uint8_t m_bytes[256];
};

} // namespace kiv
