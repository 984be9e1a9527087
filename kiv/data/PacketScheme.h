#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/String.h"
#include "kiv/data/PacketElement.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <deque>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace kiv {

// The layout of one type of packet: named fixed fields in a static part, dynamic arrays of bounded length, and either
// versions or a free tail ("cargo"). A subclass declares them, as members or in its constructor:
//     struct PictureScheme : PacketScheme {
//         PictureScheme() : PacketScheme(40, "Camera", "Picture", nullptr) {}
//         const NumberField<uint32_t> width = Number<uint32_t>("width");
//         const Field pixels = Buffer("pixels", UpTo(1 << 24));
//     };
// The order of declarations is the wire format: append only, behind a NextVersion(). One object for each type, made
// before its first packet and outliving the last. Constant once built, and may then be used by any thread.
class KIV_API PacketScheme {
public:
    using Field = PacketField;
    template <class T>
    using NumberField = PacketNumberField<T>;

    // The length of a dynamic array: from nothing up to so many values.
    struct UpTo {
        explicit constexpr UpTo(unsigned n = 0xFFFFFF) : maximum(n) {}
        unsigned maximum;
    };

    struct Version {
        uint32_t staticSize = 0;
        uint32_t dynamicArrays = 0;
    };

    // What reading and writing packets needs of a dynamic array.
    struct DynamicArray {
        uint32_t countOffset;
        uint32_t mask;
        uint32_t elementSize;
        uint32_t maximumCount;
    };

    static const unsigned maximumStaticSize = 0xFFFFFF;
    static const unsigned maximumVersion = 255;

    // Names may be null or empty. Registers the scheme under its id; see PacketSchemeRegistry.
    PacketScheme(short id, const char* module, const char* group, const char* name);
    PacketScheme(const PacketScheme&) = delete;
    PacketScheme& operator=(const PacketScheme&) = delete;
    virtual ~PacketScheme();

    short getID() const { return m_id; }
    // The non-empty names, joined by "::".
    const kiv::String& getFullName() const { return m_fullName; }
    // The newest version; the first is 0.
    unsigned getMaxVersion() const { return m_maxVersion; }
    // Requires: version <= getMaxVersion().
    const Version& getVersion(unsigned version) const { return m_versions[version]; }
    const Version& getNewestVersion() const { return m_newestVersion; }
    unsigned getMaxCargo() const { return m_maxCargo; }
    // Packets of this scheme are table entries and have the key "id".
    bool hasTableKey() const { return m_hasTableKey; }

    // An invalid field when there is no element of this name.
    Field field(TextArg name) const { return Field(findElement(name)); }
    // Null when there is none.
    const PacketElement* findElement(std::string_view name) const;
    // In the order of declaration; their addresses stay.
    const std::deque<PacketElement>& getElements() const { return m_elements; }
    const std::vector<DynamicArray>& getDynamicArrays() const { return m_dynamicArrays; }
    // The newest static part with all defaults, padding zero.
    ConstByteSpan getDefaults() const { return {m_defaults.data(), static_cast<unsigned>(m_defaults.size())}; }
    bool hasDynamicDefaults() const { return m_hasDynamicDefaults; }

protected:
    // Declarations. A number declares a fixed field of so many bytes or values, UpTo() a dynamic array. Each returns
    // the field. What can't be declared (a name that exists, a static part above 16777215 bytes, more than 256
    // versions) is logged and ignored, and the field is invalid.

    // Text; `n` counts bytes with the terminating zero.
    Field String(const char* name, unsigned n, const char* defaultText = nullptr);
    Field String(const char* name, UpTo n, const char* defaultText = nullptr);
    Field Buffer(const char* name, unsigned n);
    Field Buffer(const char* name, UpTo n);
    // An encoded item of at most `n` bytes.
    Field Item(const char* name, unsigned n);
    Field Item(const char* name, UpTo n);
    // Numbers, or whatever `type` is; null is an unsigned integer, when the size is that of one. `defaultBytes` are one
    // value, which a fixed field repeats; null is zeros, resp. an empty array.
    Field addElement(const char* name, unsigned count, unsigned elementSize, const std::type_info* type,
                     const void* defaultBytes = nullptr);
    Field addElement(const char* name, UpTo count, unsigned elementSize, const std::type_info* type,
                     const void* defaultBytes = nullptr);
    template <class T>
    NumberField<T> Number(const char* name, T defaultValue = T()) {
        static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>);
        return NumberField<T>(Numbers<T>(name, 1u, defaultValue));
    }
    template <class T>
    Field Numbers(const char* name, unsigned count, T defaultValue = T()) {
        return addElement(name, count, sizeof(T), typeOf<T>(), &defaultValue);
    }
    template <class T>
    Field Numbers(const char* name, UpTo count) {
        return addElement(name, count, sizeof(T), typeOf<T>());
    }
    // The key "id" of table entries: one GUID.
    Field Table();
    // Packets end with up to `n` free bytes instead of a version: they are always written as version 0.
    void Cargo(unsigned n);
    // What is declared from here on belongs to the next version.
    void NextVersion() { m_opensVersion = true; }

private:
    template <class T>
    static const std::type_info* typeOf() {
        static_assert(std::is_trivially_copyable_v<T>, "values are copied byte by byte");
        if constexpr (std::is_enum_v<T>) {
            return &typeid(std::underlying_type_t<T>);
        } else {
            return &typeid(T);
        }
    }

    // `element` has everything but its place. `defaultBytes` fill a fixed field (repeated), or are a dynamic array.
    Field declare(PacketElement&& element, bool isDynamic, std::string_view defaultBytes);
    Field declareBytes(const char* name, unsigned n, bool isDynamic, PacketElementKind kind, const char* text);
    Field declarePlain(const char* name, unsigned count, bool isDynamic, unsigned elementSize,
                       const std::type_info* type, const void* defaultBytes);
    Field refuse(const PacketElement& element, const char* why) const;
    void warnOfVersionsBesideCargo();
    void indexElements();

    const short m_id;
    bool m_opensVersion = false;
    bool m_hasTableKey = false;
    bool m_hasDynamicDefaults = false;
    bool m_hasWarnedOfVersions = false;
    unsigned m_maxVersion = 0;
    Version m_newestVersion; // also the last of all versions
    unsigned m_maxCargo = 0;
    kiv::String m_fullName;
    std::deque<PacketElement> m_elements;
    std::vector<DynamicArray> m_dynamicArrays;
    std::vector<Version> m_versions;
    std::vector<uint8_t> m_defaults;
    // Open addressing, a power of two at least twice as large as the number of elements.
    struct NameSlot {
        uint64_t firstWord = 0; // of the name
        size_t size = 0;
        const PacketElement* element = nullptr;
    };
    std::vector<NameSlot> m_nameSlots;
};

} // namespace kiv
