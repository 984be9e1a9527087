#include "kiv/data/Item.h"

namespace kiv {

void ItemIterator::skipToEnd() {
    while (skip()) {
    }
}

bool ItemIterator::asFloat(float& out) {
    double value;
    if (!asFloat(value)) return false;
    out = static_cast<float>(value);
    return true;
}

bool ItemIterator::asString(String& out) {
    const int start = m_offset;
    const char* text = asWeakCStr();
    if (!text) return false;
    out.assign(text, static_cast<size_t>(m_offset - start - 2));
    return true;
}

bool ItemIterator::asBuffer(Buffer& out) {
    ConstByteSpan bytes;
    if (!asWeakBytes(ValueType::Buffer, bytes)) return false;
    out.set(bytes);
    return true;
}

const uint8_t* ItemIterator::asWeakBuffer() {
    unsigned size;
    return asWeakBuffer(size);
}

bool ItemIterator::asSubItem(Item& out) {
    ConstByteSpan bytes;
    if (!asWeakBytes(ValueType::SubItem, bytes)) return false;
    out.setPlain(bytes);
    return true;
}

bool ItemIterator::asWeakItemView(Item& out) {
    const unsigned size = getSize();
    if (size == 0 || &out == m_item) return false;
    out.setStore(nullptr);
    out.setPlainExternalBuffer({rest().bytes, size});
    advance(size);
    return true;
}

bool ItemIterator::asStringOrGUID(String& text, GUID& guid) {
    if (asString(text)) {
        guid = GUID();
    } else if (asGUID(guid)) {
        text.clear();
    } else {
        return false;
    }
    return true;
}

ValueType ItemIterator::extract(Item& out) {
    const unsigned size = getSize();
    if (size == 0) return ValueType::Invalid;
    const Rest here = rest();
    const auto type = static_cast<ValueType>(here.bytes[0]);
    out.setPlain(ConstByteSpan(here.bytes, size));
    advance(size);
    return type;
}

} // namespace kiv
