#include "kiv/data/PacketScheme.h"

#include "kiv/data/ItemInline.h"
#include "kiv/data/PacketSchemeRegistry.h"
#include "kiv/logging/MessageStream.h"

#include <algorithm>
#include <cstring>

namespace kiv {

const unsigned PacketScheme::maximumStaticSize;
const unsigned PacketScheme::maximumVersion;
namespace {

// Alignment is that of the largest power of two in the size, eight at most: what a compiler gives structures.
uint32_t maskOf(uint32_t elementSize) {
    const uint32_t lowestBit = elementSize & (~elementSize + 1);
    return std::min<uint32_t>(lowestBit, 8) - 1;
}

// The first eight bytes, zeros behind shorter names, without a loop whose end nobody can predict.
uint64_t firstWordOf(std::string_view name) {
    const auto byteAt = [&name](size_t i) { return uint64_t{static_cast<uint8_t>(name[i])} << 8 * i; };
    const size_t size = name.size();
    if (size >= 8) return internal::loadUnaligned<uint64_t>(name.data());
    if (size >= 4) {
        const uint64_t end = internal::loadUnaligned<uint32_t>(name.data() + size - 4);
        return internal::loadUnaligned<uint32_t>(name.data()) | end << 8 * (size - 4);
    }
    return size == 0 ? 0 : byteAt(0) | byteAt(size / 2) | byteAt(size - 1);
}

uint32_t hashOf(std::string_view name, uint64_t firstWord) {
    constexpr uint64_t factor = 0x9E3779B97F4A7C15;
    uint64_t hash = (firstWord ^ name.size()) * factor;
    for (size_t at = 8; at < name.size(); at += 8) {
        // The last word overlaps the one before.
        const size_t from = std::min(at, name.size() - 8);
        hash = ((hash ^ hash >> 32) ^ internal::loadUnaligned<uint64_t>(name.data() + from)) * factor;
    }
    return static_cast<uint32_t>(hash >> 32);
}

template <class T>
constexpr PacketNumber numberOf() {
    if constexpr (std::is_floating_point_v<T>) {
        return sizeof(T) == 4 ? PacketNumber::Float : PacketNumber::Double;
    } else {
        const int step = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
        return static_cast<PacketNumber>(
            static_cast<int>(std::is_signed_v<T> ? PacketNumber::Int8 : PacketNumber::UInt8) + step);
    }
}

struct KnownType {
    const std::type_info* type;
    PacketNumber number;
    uint32_t size;
};

template <class... T>
std::vector<KnownType> knownTypes() {
    return {{&typeid(T), numberOf<T>(), sizeof(T)}...};
}

const KnownType* findType(const std::type_info& type) {
    static const std::vector<KnownType> known =
        knownTypes<bool, char, signed char, unsigned char, short, unsigned short, int, unsigned, long, unsigned long,
                   long long, unsigned long long, wchar_t, char8_t, char16_t, char32_t, float, double>();
    for (const KnownType& candidate : known) {
        if (*candidate.type == type) return &candidate;
    }
    return nullptr;
}

PacketNumber unsignedNumber(uint32_t size) {
    switch (size) {
    case 1:
        return PacketNumber::UInt8;
    case 2:
        return PacketNumber::UInt16;
    case 4:
        return PacketNumber::UInt32;
    case 8:
        return PacketNumber::UInt64;
    default:
        return PacketNumber::None;
    }
}

} // namespace

PacketScheme::PacketScheme(short id, const char* module, const char* group, const char* name)
    : m_id(id), m_versions(1), m_nameSlots(4) {
    for (const char* part : {module, group, name}) {
        if (!part || !*part) continue;
        if (!m_fullName.empty()) m_fullName += "::";
        m_fullName += part;
    }
    PacketSchemeRegistry::add(this);
}

PacketScheme::~PacketScheme() {
    PacketSchemeRegistry::remove(this);
}

const PacketElement* PacketScheme::findElement(std::string_view name) const {
    const uint64_t firstWord = firstWordOf(name);
    const size_t last = m_nameSlots.size() - 1;
    for (size_t at = hashOf(name, firstWord) & last;; at = (at + 1) & last) {
        const NameSlot& slot = m_nameSlots[at];
        if (!slot.element) return nullptr;
        if (slot.firstWord != firstWord || slot.size != name.size()) continue;
        if (name.size() <= 8 || std::memcmp(slot.element->name.data() + 8, name.data() + 8, name.size() - 8) == 0)
            return slot.element;
    }
}

void PacketScheme::indexElements() {
    const size_t size = m_nameSlots.size();
    m_nameSlots.assign(2 * m_elements.size() < size ? size : 2 * size, NameSlot());
    const size_t last = m_nameSlots.size() - 1;
    for (const PacketElement& element : m_elements) {
        const uint64_t firstWord = firstWordOf(element.name.view());
        size_t at = hashOf(element.name.view(), firstWord) & last;
        while (m_nameSlots[at].element) at = (at + 1) & last;
        m_nameSlots[at] = {firstWord, element.name.size(), &element};
    }
}

PacketField PacketScheme::refuse(const PacketElement& element, const char* why) const {
    logging::MessageStream(3, 2) << "PacketScheme::addElement: " << why << ", member=" << element.name
                                 << ", getFullName()=" << m_fullName;
    return Field();
}

PacketField PacketScheme::declare(PacketElement&& element, bool isDynamic, std::string_view defaultBytes) {
    if (element.elementSize == 0 || element.elementSize > maximumStaticSize) return refuse(element, "bad element size");
    if (findElement(element.name.view())) return refuse(element, "member exists already");
    if (m_opensVersion && getMaxVersion() == maximumVersion) return refuse(element, "too many versions");

    element.mask = maskOf(element.elementSize);
    if (element.number >= PacketNumber::Int8 && element.number <= PacketNumber::UInt64) {
        element.valueBits = ~uint64_t{0} >> (64 - 8 * element.elementSize);
        element.signBit = element.number <= PacketNumber::Int64 ? element.valueBits ^ (element.valueBits >> 1) : 0;
    }
    const uint64_t mask = isDynamic ? 3 : element.mask;
    const uint64_t offset = (m_defaults.size() + mask) & ~mask;
    const uint64_t end = offset + (isDynamic ? 4 : uint64_t{element.count} * element.elementSize);
    if (end > maximumStaticSize) return refuse(element, "static part too large");

    if (m_opensVersion) {
        m_versions.push_back(m_versions.back());
        ++m_maxVersion;
        m_opensVersion = false;
    }
    element.scheme = this;
    element.offset = static_cast<uint32_t>(offset);
    element.version = static_cast<uint8_t>(getMaxVersion());
    m_defaults.resize(end);
    uint8_t* slot = m_defaults.data() + offset;
    if (isDynamic) {
        element.dynamicIndex = static_cast<int32_t>(m_dynamicArrays.size());
        m_dynamicArrays.push_back({element.offset, element.mask, element.elementSize, element.maximumCount});
        element.defaultBytes = kiv::String(defaultBytes);
        m_hasDynamicDefaults = m_hasDynamicDefaults || !defaultBytes.empty();
    } else if (!defaultBytes.empty()) {
        for (uint64_t at = 0; at + defaultBytes.size() <= end - offset; at += defaultBytes.size())
            std::memcpy(slot + at, defaultBytes.data(), defaultBytes.size());
    }
    m_newestVersion = {static_cast<uint32_t>(end), static_cast<uint32_t>(m_dynamicArrays.size())};
    m_versions.back() = m_newestVersion;
    m_elements.push_back(std::move(element));
    for (PacketElement& each : m_elements) {
        if (!each.isInteger() || each.offset + 8 > end) continue;
        const auto values = static_cast<uint32_t>((end - 8 - each.offset) / each.elementSize + 1);
        each.wideCount = std::min(each.count, values);
    }
    indexElements();
    warnOfVersionsBesideCargo();
    return Field(&m_elements.back());
}

PacketField PacketScheme::declareBytes(const char* name, unsigned n, bool isDynamic, PacketElementKind kind,
                                       const char* text) {
    PacketElement element;
    element.name = kiv::String(name);
    element.kind = kind;
    element.elementSize = 1;
    element.count = isDynamic ? 0 : n;
    element.maximumCount = n;
    std::string bytes;
    if (text) bytes.assign(text, std::strlen(text) + 1);
    if (bytes.size() > n) return refuse(element, "default value too long");
    if (text && !isDynamic) bytes.resize(n);
    return declare(std::move(element), isDynamic, bytes);
}

PacketField PacketScheme::declarePlain(const char* name, unsigned count, bool isDynamic, unsigned elementSize,
                                       const std::type_info* type, const void* defaultBytes) {
    PacketElement element;
    element.name = kiv::String(name);
    element.elementSize = elementSize;
    element.count = isDynamic ? 0 : count;
    element.maximumCount = count;
    if (!type) {
        element.number = unsignedNumber(elementSize);
    } else if (const KnownType* known = findType(*type)) {
        if (known->size != elementSize) return refuse(element, "element size is not that of the type");
        element.number = known->number;
    }
    if (defaultBytes && isDynamic && count == 0) return refuse(element, "default value too long");
    const std::string_view bytes(static_cast<const char*>(defaultBytes), defaultBytes ? elementSize : 0);
    return declare(std::move(element), isDynamic, bytes);
}

PacketField PacketScheme::String(const char* name, unsigned n, const char* defaultText) {
    return declareBytes(name, n, false, PacketElementKind::Text, defaultText);
}

PacketField PacketScheme::String(const char* name, UpTo n, const char* defaultText) {
    return declareBytes(name, n.maximum, true, PacketElementKind::Text, defaultText);
}

PacketField PacketScheme::Buffer(const char* name, unsigned n) {
    return declareBytes(name, n, false, PacketElementKind::Buffer, nullptr);
}

PacketField PacketScheme::Buffer(const char* name, UpTo n) {
    return declareBytes(name, n.maximum, true, PacketElementKind::Buffer, nullptr);
}

PacketField PacketScheme::Item(const char* name, unsigned n) {
    return declareBytes(name, n, false, PacketElementKind::Item, nullptr);
}

PacketField PacketScheme::Item(const char* name, UpTo n) {
    return declareBytes(name, n.maximum, true, PacketElementKind::Item, nullptr);
}

PacketField PacketScheme::addElement(const char* name, unsigned count, unsigned elementSize, const std::type_info* type,
                                     const void* defaultBytes) {
    return declarePlain(name, count, false, elementSize, type, defaultBytes);
}

PacketField PacketScheme::addElement(const char* name, UpTo count, unsigned elementSize, const std::type_info* type,
                                     const void* defaultBytes) {
    return declarePlain(name, count.maximum, true, elementSize, type, defaultBytes);
}

PacketField PacketScheme::Table() {
    PacketElement element;
    element.name = kiv::String("id");
    element.elementSize = 32;
    element.count = 1;
    element.maximumCount = 1;
    element.isTableKey = true;
    const Field key = declare(std::move(element), false, {});
    m_hasTableKey = m_hasTableKey || key;
    return key;
}

void PacketScheme::Cargo(unsigned n) {
    m_maxCargo = n;
    warnOfVersionsBesideCargo();
}

// Such packets carry no version, so that later fields are never written.
void PacketScheme::warnOfVersionsBesideCargo() {
    if (m_maxCargo == 0 || getMaxVersion() == 0 || m_hasWarnedOfVersions) return;
    m_hasWarnedOfVersions = true;
    logging::MessageStream(2, 2) << "packet scheme with cargo has versions, later members are not transmitted, "
                                    "getFullName()="
                                 << m_fullName;
}

} // namespace kiv
