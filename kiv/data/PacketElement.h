#pragma once

#include "kiv/core/SmartCStr.h"
#include "kiv/core/String.h"

#include <cstdint>
#include <string_view>

namespace kiv {

class PacketScheme;

// What the bytes of an element are. Plain elements are numbers, GUIDs and whatever else has a fixed size.
enum class PacketElementKind : uint8_t { Plain = 0, Text = 3, Buffer = 4, Item = 5 };

// How a plain element is read as a number; None for other sizes and types.
enum class PacketNumber : uint8_t { None, Int8, Int16, Int32, Int64, UInt8, UInt16, UInt32, UInt64, Float, Double };

// One element of a scheme, as declared. Owned by its scheme and constant once the scheme is built.
struct PacketElement {
    // Used at every access.
    const PacketScheme* scheme = nullptr;
    uint32_t offset = 0;       // of the field in the static part; of its count there for a dynamic array
    uint32_t elementSize = 0;  // bytes of one value
    uint32_t count = 0;        // values of a fixed field; 0 for a dynamic array
    int32_t dynamicIndex = -1; // among the scheme's dynamic arrays
    uint32_t wideCount = 0;    // of a fixed field of integers: values that can be read as eight bytes
    uint64_t valueBits = 0;    // those of an integer, and of them the one that is extended; 0 for what is none
    uint64_t signBit = 0;
    PacketElementKind kind = PacketElementKind::Plain;
    PacketNumber number = PacketNumber::None;

    bool isTableKey = false;
    uint8_t version = 0;       // that declared it
    uint32_t maximumCount = 0; // values at most; `count` for a fixed field
    uint32_t mask = 0;         // alignment - 1 of the values
    String name;
    String defaultBytes; // of a dynamic array; those of fixed fields are in the scheme's defaults

    bool isDynamic() const { return dynamicIndex >= 0; }
    bool isInteger() const { return valueBits != 0; }
    bool isFloat() const { return number >= PacketNumber::Float; }
    // In the static part. Requires: a fixed field.
    size_t getValueOffset(unsigned index) const { return offset + size_t{index} * elementSize; }
    // Read and written as bytes: neither text nor item.
    bool hasBytes() const { return kind == PacketElementKind::Plain || kind == PacketElementKind::Buffer; }
    uint64_t getMaximumSize() const { return uint64_t{maximumCount} * elementSize; }
};

// A name resolved once: PacketScheme::Field. Access through it costs no search. A small value, valid as long as the
// scheme; used with a packet of another scheme it stands for the element of the same name there.
class PacketField {
public:
    PacketField() = default;
    explicit PacketField(const PacketElement* element) : m_element(element) {}

    explicit operator bool() const { return m_element != nullptr; }
    // Null for a field that does not exist.
    const PacketElement* getElement() const { return m_element; }

private:
    const PacketElement* m_element = nullptr;
};

// The resolved field of one number of type T: Packet::get() and set() need not look at what it is.
template <class T>
class PacketNumberField : public PacketField {
public:
    PacketNumberField() = default;

private:
    friend class PacketScheme;

    explicit PacketNumberField(PacketField field) : PacketField(field) {}
};

// What field parameters accept: a resolved field, or a name, which is looked up in the scheme's index. Two words, so
// that it is passed in registers.
class PacketFieldArg {
public:
    PacketFieldArg(PacketField field) : m_pointer(field.getElement()), m_size(resolved) {}
    PacketFieldArg(const char* name) : PacketFieldArg(std::string_view(name ? name : "")) {}
    PacketFieldArg(const String& name) : PacketFieldArg(name.view()) {}
    PacketFieldArg(const SmartCStr& name) : PacketFieldArg(name.view()) {}

    // Null for names.
    const PacketElement* getElement() const {
        return m_size == resolved ? static_cast<const PacketElement*>(m_pointer) : nullptr;
    }
    std::string_view getName() const {
        if (m_size != resolved) return {static_cast<const char*>(m_pointer), m_size};
        return m_pointer ? getElement()->name.view() : std::string_view();
    }

private:
    static constexpr size_t resolved = static_cast<size_t>(-1);

    explicit PacketFieldArg(std::string_view name) : m_pointer(name.data()), m_size(name.size()) {}

    const void* m_pointer;
    size_t m_size;
};

} // namespace kiv
