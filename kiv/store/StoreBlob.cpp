#include "kiv/store/StoreBlob.h"

#include "kiv/store/EntryWalk.h"

#include <cstring>

namespace kiv {

namespace internal {

void writeBlobHead(uint8_t* to, unsigned size) {
    const uint32_t length = size;
    to[0] = static_cast<uint8_t>(ValueType::SubItem);
    std::memcpy(to + 1, &length, sizeof length);
}

bool readBlobHead(const uint8_t* from, uint32_t& size) {
    std::memcpy(&size, from + 1, sizeof size);
    return from[0] == static_cast<uint8_t>(ValueType::SubItem) && size <= Item::maximumSize;
}

namespace {

// Takes one nested item off the front.
bool takeNested(ConstByteSpan& rest, ConstByteSpan& nested) {
    uint32_t size;
    if (rest.getSize() < blobHeadSize || !readBlobHead(rest.getBytePointer(), size)) return false;
    const uint8_t* const bytes = rest.getBytePointer() + blobHeadSize;
    const unsigned left = rest.getSize() - blobHeadSize;
    if (size > left) return false;
    nested = ConstByteSpan(bytes, size);
    rest = ConstByteSpan(bytes + size, left - size);
    return true;
}

} // namespace

bool takeBlobEntry(ConstByteSpan& rest, ConstByteSpan& key, ConstByteSpan& value) {
    return takeNested(rest, key) && takeNested(rest, value);
}

} // namespace internal

namespace {

constexpr uint64_t largestBlob = 0xFFFFFFFF;

// Not by Item::addItem(), which stops at 2 GiB.
void appendNested(Buffer& out, const Item& item) {
    internal::writeBlobHead(out.append(internal::blobHeadSize), item.getPlainSize());
    out.append(item.getConstByteSpan());
}

} // namespace

bool StoreBlob::encode(Store& store, Buffer& out) {
    out.clear();
    const bool fits = internal::visitEntries(store, [&out](const Item& key, const Item& value) {
        const uint64_t sizes = uint64_t{key.getPlainSize()} + value.getPlainSize() + 2 * internal::blobHeadSize;
        if (out.getSize() + sizes > largestBlob) return false;
        appendNested(out, key);
        appendNested(out, value);
        return true;
    });
    if (!fits) out.clear();
    return fits;
}

bool StoreBlob::decode(const ConstByteSpan& blob, Store& store) {
    ConstByteSpan rest = blob, key, value;
    while (!rest.empty()) {
        if (!internal::takeBlobEntry(rest, key, value)) return false;
        const Item view(Item::ExternalBufferMode(), key);
        if (!view.isCleanKey()) return false;
        store.set(view, Item(Item::ExternalBufferMode(), value));
    }
    return true;
}

} // namespace kiv
