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

// From encoded bytes.
inline kiv::Item plain(const std::string& bytes) {
    return kiv::Item(kiv::Item::PlainMode(), kiv::ConstByteSpan(reinterpret_cast<const uint8_t*>(bytes.data()),
                                                                static_cast<unsigned>(bytes.size())));
}

} // namespace support
