#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/platform/Compiler.h"
#include "kiv/store/Store.h"

#include <cstdint>

namespace kiv {

// The entries of a store as one item: nested items, key and value by turns, in the order of the keys
// (doc/formats/store-file.md). Threads: those of the store.
class KIV_API StoreBlob {
public:
    // Replaces the contents of `out` by all entries. False, and `out` is empty, when they take more than 4 GiB.
    static bool encode(Store& store, Buffer& out);

    // Sets each pair; other entries of the store stay. False at the first that is no pair of nested items, or whose key
    // is not clean (Item::isCleanKey); the pairs before it are set then. Requires: the bytes are none of the store's.
    static bool decode(const ConstByteSpan& blob, Store& store);
};

namespace internal {

// What stands before the bytes of a key or value.
inline constexpr unsigned blobHeadSize = 5;
KIV_API void writeBlobHead(uint8_t* to, unsigned size);
// False when this is no head of a nested item.
KIV_API bool readBlobHead(const uint8_t* from, uint32_t& size);
// Takes a record off the front; false when none is there, and then something may be gone.
KIV_API bool takeBlobEntry(ConstByteSpan& rest, ConstByteSpan& key, ConstByteSpan& value);

} // namespace internal

} // namespace kiv
