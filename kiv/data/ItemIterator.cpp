#include "kiv/data/Item.h"

namespace kiv {

bool ItemIterator::readIntegerSlow(long long& out) {
    const Element here = element();
    if (here.size == 0) return false;
    switch (static_cast<ValueType>(here.bytes[0])) {
    case ValueType::Int8:
        out = static_cast<int8_t>(here.bytes[1]);
        break;
    case ValueType::Int16:
        out = internal::loadUnaligned<int16_t>(here.bytes + 1);
        break;
    case ValueType::Int32:
        out = internal::loadUnaligned<int32_t>(here.bytes + 1);
        break;
    case ValueType::Int64:
        out = internal::loadUnaligned<int64_t>(here.bytes + 1);
        break;
    default:
        return false;
    }
    advance(here.size);
    return true;
}

bool ItemIterator::skip(int count) {
    for (; count > 0; --count) {
        const unsigned size = getSize();
        if (size == 0) return false;
        advance(size);
    }
    return true;
}

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

bool ItemIterator::asBool(bool& out) {
    const ValueType type = getType();
    if (type != ValueType::True && type != ValueType::False) return false;
    out = type == ValueType::True;
    advance(1);
    return true;
}

bool ItemIterator::asString(String& out) {
    const Element here = element();
    const char* text = asWeakCStr();
    if (!text) return false;
    out.assign(text, here.size - 2);
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

bool ItemIterator::asGUID(GUID& out) {
    const Element here = element();
    if (here.size == 0 || here.bytes[0] != static_cast<uint8_t>(ValueType::GUID)) return false;
    std::memcpy(out.getBytePointer(), here.bytes + 1, sizeof(GUID));
    advance(here.size);
    return true;
}

bool ItemIterator::asNIL() {
    if (getType() != ValueType::NIL) return false;
    advance(1);
    return true;
}

bool ItemIterator::asSubItem(Item& out) {
    ConstByteSpan bytes;
    if (!asWeakBytes(ValueType::SubItem, bytes)) return false;
    out.setPlain(bytes);
    return true;
}

bool ItemIterator::asWeakItemView(Item& out) {
    const Element here = element();
    if (here.size == 0 || &out == m_item) return false;
    out.setStore(nullptr);
    out.setPlainExternalBuffer({here.bytes, here.size});
    advance(here.size);
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
    const Element here = element();
    if (here.size == 0) return ValueType::Invalid;
    const auto type = static_cast<ValueType>(here.bytes[0]);
    out.setPlain(ConstByteSpan(here.bytes, here.size));
    advance(here.size);
    return type;
}

} // namespace kiv
