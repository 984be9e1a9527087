#pragma once

#include "kiv/data/Item.h"

#include <string>

// Short ways to build items in tests.
namespace support {

template <class... Values>
kiv::Item list(const Values&... values) {
    kiv::Item item;
    (item.add(values), ...);
    return item;
}

// The elements of items, one after another.
template <class... Items>
kiv::Item joined(const Items&... items) {
    kiv::Item item;
    (item.concatItem(items), ...);
    return item;
}

// What `write` makes of an empty item.
template <class Write>
kiv::Item made(Write write) {
    kiv::Item item;
    write(item);
    return item;
}

inline kiv::Item prefix(const char* text) {
    return made([=](kiv::Item& i) { i.addPrefix(text); });
}

inline kiv::Item table(const kiv::Item& pairs) {
    return joined(prefix("table"), list(pairs));
}

inline kiv::Item nested(int levels) {
    return levels == 0 ? kiv::Item() : list(nested(levels - 1));
}

// From encoded bytes.
inline kiv::Item plain(const std::string& bytes) {
    return kiv::Item(kiv::Item::PlainMode(), kiv::ConstByteSpan(reinterpret_cast<const uint8_t*>(bytes.data()),
                                                                static_cast<unsigned>(bytes.size())));
}

} // namespace support
