#pragma once

// Access to fields by resolved field, in the header so that it needs neither search nor call.

#include "kiv/data/Packet.h"

#include "kiv/data/ItemInline.h"

namespace kiv {

namespace internal {

// memcpy takes no null pointers, not even for nothing.
inline void copyBytes(uint8_t* to, const uint8_t* from, size_t size) {
    if (size != 0) std::memcpy(to, from, size);
}

// Requires: the size is that of an integer.
inline void storeInteger(uint8_t* to, uint64_t value, uint32_t size) {
    switch (size) {
    case 1:
        return storeUnaligned(to, static_cast<uint8_t>(value));
    case 2:
        return storeUnaligned(to, static_cast<uint16_t>(value));
    case 4:
        return storeUnaligned(to, static_cast<uint32_t>(value));
    default:
        return storeUnaligned(to, value);
    }
}

} // namespace internal

inline void Packet::setInt64(PacketFieldArg field, uint64_t value, unsigned index) {
    const PacketElement* element = field.getElement();
    auto* to = const_cast<uint8_t*>(fixedValue(element, index));
    if (!to || m_isStaticReceived || !element->isInteger()) return setIntegerSlowly(field, value, index);
    internal::storeInteger(to, value, element->elementSize);
}

inline int64_t Packet::getInteger(PacketFieldArg field, unsigned index) const {
    const PacketElement* element = field.getElement();
    if (!element || element->scheme != m_scheme || index >= element->wideCount) return getIntegerSlowly(field, index);
    // All sizes in one load.
    const uint8_t* from = m_payload + element->offset + size_t{index} * element->elementSize;
    const uint64_t value = internal::loadUnaligned<uint64_t>(from) & element->valueBits;
    return static_cast<int64_t>((value ^ element->signBit) - element->signBit);
}

inline void Packet::setFloat(PacketFieldArg field, double value, unsigned index) {
    const PacketElement* element = field.getElement();
    auto* to = const_cast<uint8_t*>(fixedValue(element, index));
    if (to && !m_isStaticReceived && element->number == PacketNumber::Double) {
        internal::storeUnaligned(to, value);
    } else if (to && !m_isStaticReceived && element->number == PacketNumber::Float) {
        internal::storeUnaligned(to, static_cast<float>(value));
    } else {
        setFloatSlowly(field, value, index);
    }
}

inline double Packet::getFloat(PacketFieldArg field, unsigned index) const {
    const PacketElement* element = field.getElement();
    const uint8_t* from = fixedValue(element, index);
    if (from && element->number == PacketNumber::Double) return internal::loadUnaligned<double>(from);
    if (from && element->number == PacketNumber::Float)
        return static_cast<double>(internal::loadUnaligned<float>(from));
    return getFloatSlowly(field, index);
}

inline const char* Packet::getString(PacketFieldArg field) const {
    const PacketElement* element = field.getElement();
    if (element && element->scheme == m_scheme && element->kind == PacketElementKind::Text) {
        const ConstByteSpan bytes = arrayGetInternal(*element);
        if (!bytes.empty() && bytes[bytes.getSize() - 1] == 0)
            return reinterpret_cast<const char*>(bytes.getBytePointer());
    }
    return getStringSlowly(field);
}

inline ConstByteSpan Packet::getByteSpan(PacketFieldArg field) const {
    const PacketElement* element = field.getElement();
    if (!element || element->scheme != m_scheme || !element->hasBytes()) element = resolveBytes(field, "getByteSpan");
    return element ? arrayGetInternal(*element) : ConstByteSpan();
}

inline ConstByteSpan Packet::arrayGetInternal(const PacketElement& element) const {
    if (!element.isDynamic()) return {m_payload + element.offset, element.count * element.elementSize};
    const Attachment& array = m_attachments[element.dynamicIndex];
    return {array.bytes, array.size};
}

} // namespace kiv
