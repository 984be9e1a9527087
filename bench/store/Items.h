#pragma once

#include "Workload.h"
#include "kiv/data/Item.h"

namespace bench {

// Keys and values as items.
struct Items {
    using Key = kiv::Item;
    using Value = kiv::Item;

    static kiv::Item key(const PlainKey& plain) {
        kiv::Item result(plain.text.data());
        result.add(plain.time);
        result.add(plain.index);
        if (result.getPlainSize() != 26) fail("items", "a key of another size");
        return result;
    }
    // A view of the bytes that all contestants get.
    static kiv::Item value(const std::array<uint8_t, valueSize>& bytes) {
        kiv::Item result(kiv::Item::ExternalBufferMode(), {bytes.data(), valueSize});
        if (result.getDepth() != 1) fail("items", "a value of other bytes");
        return result;
    }
    static const kiv::Item& probe(const kiv::Item& key) { return key; }
    static std::string_view view(const kiv::Item& item) {
        return {reinterpret_cast<const char*>(item.getPlainBytePointer()), item.getPlainSize()};
    }
};

} // namespace bench
