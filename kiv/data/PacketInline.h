#pragma once

// What Packet has in the header: access by resolved field, which needs neither search nor call, and templates.

#include "kiv/data/Packet.h"

#include "kiv/data/ItemInline.h"

#include <algorithm>

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

inline ConstByteSpan Packet::arrayGetInternal(const PacketElement& element) const {
    if (!element.isDynamic()) return {m_payload + element.offset, element.count * element.elementSize};
    const Attachment& array = m_attachments[element.dynamicIndex];
    return {array.bytes, array.size};
}

inline void Packet::setInt64(PacketFieldArg field, uint64_t value, unsigned index) {
    const PacketElement* element = field.getElement();
    if (!hasFixedValue(element, index) || m_isStaticReceived || !element->isInteger()) [[unlikely]]
        return setIntegerSlowly(field, value, index);
    internal::storeInteger(m_payload + element->getValueOffset(index), value, element->elementSize);
}

inline int64_t Packet::getInteger(PacketFieldArg field, unsigned index) const {
    const PacketElement* element = field.getElement();
    if (!isOfScheme(element) || index >= element->wideCount) [[unlikely]]
        return getIntegerSlowly(field, index);
    // All sizes in one load.
    const auto bytes = internal::loadUnaligned<uint64_t>(m_payload + element->getValueOffset(index));
    const uint64_t value = bytes & element->valueBits;
    return static_cast<int64_t>((value ^ element->signBit) - element->signBit);
}

inline void Packet::setFloat(PacketFieldArg field, double value, unsigned index) {
    const PacketElement* element = field.getElement();
    if (!hasFixedValue(element, index) || m_isStaticReceived || !element->isFloat()) [[unlikely]]
        return setFloatSlowly(field, value, index);
    uint8_t* to = m_payload + element->getValueOffset(index);
    if (element->number == PacketNumber::Double) {
        internal::storeUnaligned(to, value);
    } else {
        internal::storeUnaligned(to, static_cast<float>(value));
    }
}

inline double Packet::getFloat(PacketFieldArg field, unsigned index) const {
    const PacketElement* element = field.getElement();
    if (!hasFixedValue(element, index) || !element->isFloat()) [[unlikely]]
        return getFloatSlowly(field, index);
    const uint8_t* from = m_payload + element->getValueOffset(index);
    if (element->number == PacketNumber::Double) return internal::loadUnaligned<double>(from);
    return static_cast<double>(internal::loadUnaligned<float>(from));
}

template <class T>
void Packet::set(PacketNumberField<T> field, std::type_identity_t<T> value) {
    const PacketElement* element = field.getElement();
    if (isOfScheme(element) && !m_isStaticReceived) [[likely]] {
        internal::storeUnaligned(m_payload + element->offset, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        setFloatSlowly(field, static_cast<double>(value), 0);
    } else {
        setIntegerSlowly(field, static_cast<uint64_t>(value), 0);
    }
}

template <class T>
T Packet::get(PacketNumberField<T> field) const {
    const PacketElement* element = field.getElement();
    if (isOfScheme(element)) [[likely]] {
        const uint8_t* from = m_payload + element->offset;
        // What is received need not be 0 or 1.
        if constexpr (std::is_same_v<T, bool>)
            return *from != 0;
        else
            return internal::loadUnaligned<T>(from);
    }
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<T>(getFloatSlowly(field, 0));
    else
        return static_cast<T>(getIntegerSlowly(field, 0));
}

inline const char* Packet::getString(PacketFieldArg field) const {
    const PacketElement* element = field.getElement();
    if (isOfScheme(element) && element->kind == PacketElementKind::Text) [[likely]] {
        const ConstByteSpan bytes = arrayGetInternal(*element);
        if (!bytes.empty() && bytes[bytes.getSize() - 1] == 0) [[likely]]
            return reinterpret_cast<const char*>(bytes.getBytePointer());
    }
    return getStringSlowly(field);
}

inline ConstByteSpan Packet::getByteSpan(PacketFieldArg field) const {
    const PacketElement* element = field.getElement();
    if (!isOfScheme(element) || !element->hasBytes()) [[unlikely]]
        element = resolveBytes(field, "getByteSpan");
    return element ? arrayGetInternal(*element) : ConstByteSpan();
}

template <class Container>
requires std::same_as<typename Container::value_type, String>
void Packet::setStringList(PacketFieldArg field, const Container& texts) {
    std::string bytes;
    for (const String& text : texts) bytes.append(text.c_str()).push_back('\0');
    setStringListInternal(field, bytes);
}

template <class Container>
requires std::same_as<typename Container::value_type, String>
void Packet::getStringList(PacketFieldArg field, Container& out) const {
    out.clear();
    std::string_view left = getStringListInternal(field);
    while (!left.empty()) {
        // Borrowed memory may have lost its last zero since it was checked.
        const size_t end = std::min(left.find('\0'), left.size() - 1);
        out.insert(out.end(), String(left.substr(0, end)));
        left.remove_prefix(end + 1);
    }
}

template <class T>
bool Packet::getArray(PacketFieldArg field, Vector<T>& out) const {
    ConstByteSpan bytes;
    if (!getValues(field, bytes, sizeof(T))) return false;
    out.resize(bytes.getSize() / sizeof(T));
    if (!out.empty()) std::memcpy(out.data(), bytes.getBytePointer(), bytes.getSize());
    return true;
}

inline void Packet::allocateAttachments(size_t count) {
    m_attachments = m_firstAttachments;
    if (count > inlineAttachments) return allocateManyAttachments(count);
    m_attachmentCount = count;
    std::memset(m_firstAttachments, 0, sizeof m_firstAttachments); // empty views
}

} // namespace kiv
