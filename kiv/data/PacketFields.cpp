// Access to the fields of a packet by name or resolved field.

#include "kiv/data/ItemInline.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"

#include <algorithm>

namespace kiv {
namespace {

constexpr const char* noMember = "no member";
constexpr const char* noTerminator = "member contents does not end with nullbyte";

// Requires: the size is that of an integer.
uint64_t loadValue(const uint8_t* from, uint32_t size) {
    switch (size) {
    case 1:
        return *from;
    case 2:
        return internal::loadUnaligned<uint16_t>(from);
    case 4:
        return internal::loadUnaligned<uint32_t>(from);
    default:
        return internal::loadUnaligned<uint64_t>(from);
    }
}

std::string_view upToZero(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// The longest beginning of at most `size` bytes that ends between two characters.
std::string_view cutText(std::string_view text, size_t size) {
    size_t end = size;
    for (int back = 0; back < 3 && end > 0 && (static_cast<uint8_t>(text[end]) & 0xC0) == 0x80; ++back) --end;
    return text.substr(0, end);
}

} // namespace

// ---- Finding fields.

const PacketElement* Packet::resolveByName(PacketFieldArg field) const {
    return m_scheme ? m_scheme->findElement(field.getName()) : nullptr;
}

const PacketElement* Packet::resolve(PacketFieldArg field, PacketElementKind kind, const char* operation) const {
    const PacketElement* element = resolve(field);
    return element && element->kind == kind ? element : complain(operation, noMember, field);
}

// Bytes are what buffers and plain elements have.
const PacketElement* Packet::resolveBytes(PacketFieldArg field, const char* operation) const {
    const PacketElement* element = resolve(field);
    return element && element->hasBytes() ? element : complain(operation, noMember, field);
}

// Returns null.
const PacketElement* Packet::complain(const char* operation, const char* what, PacketFieldArg field, int level) const {
    logging::MessageStream(level, 2) << "Packet::" << operation << ": " << what << ", "
                                     << "member"
                                     << "=" << field.getName() << ", "
                                     << "m_scheme->getFullName()"
                                     << "=" << (m_scheme ? m_scheme->getFullName().c_str() : "");
    return nullptr;
}

bool Packet::isSizeAllowed(const PacketElement& element, uint64_t size, const char* operation) const {
    const char* what = size > element.getMaximumSize()   ? "contents too large"
                       : size % element.elementSize != 0 ? "contents end within a value"
                                                         : nullptr;
    if (what) complain(operation, what, PacketField(&element));
    return !what;
}

// ---- Bytes of fields.

// Null when there is no value of this index.
const uint8_t* Packet::singleGetInternal(const PacketElement& element, unsigned index) const {
    const uint64_t begin = uint64_t{index} * element.elementSize;
    if (!element.isDynamic()) return index < element.count ? m_payload + element.getValueOffset(index) : nullptr;
    const Attachment& array = m_attachments[element.dynamicIndex];
    return begin + element.elementSize <= array.size ? array.bytes + begin : nullptr;
}

uint8_t* Packet::singleSetInternal(const PacketElement& element, unsigned index) {
    if (!singleGetInternal(element, index)) return nullptr;
    makeStaticWritable();
    if (element.isDynamic()) {
        Attachment& array = m_attachments[element.dynamicIndex];
        if (array.storage == Storage::View) replaceAttachment(array, array.bytes, array.size, array.size);
    }
    return const_cast<uint8_t*>(singleGetInternal(element, index));
}

// Requires: isSizeAllowed(). The bytes may be the packet's own.
void Packet::arraySetInternal(const PacketElement& element, const uint8_t* bytes, unsigned size, bool copy) {
    makeStaticWritable();
    if (!element.isDynamic()) {
        uint8_t* slot = m_payload + element.offset;
        if (size != 0) std::memmove(slot, bytes, size);
        std::memset(slot + size, 0, element.getMaximumSize() - size);
        return;
    }
    Attachment& array = m_attachments[element.dynamicIndex];
    if (copy || size == 0) {
        replaceAttachment(array, bytes, size, size);
    } else {
        replaceAttachment(array, nullptr, 0, 0);
        array = {const_cast<uint8_t*>(bytes), size, Storage::View};
    }
    internal::storeUnaligned<uint32_t>(m_payload + element.offset, size / element.elementSize);
}

// Requires: isSizeAllowed(). Unspecified bytes; behind those of a fixed field zeros.
uint8_t* Packet::allocateInternal(const PacketElement& element, unsigned size) {
    makeStaticWritable();
    if (!element.isDynamic()) {
        uint8_t* slot = m_payload + element.offset;
        std::memset(slot + size, 0, element.getMaximumSize() - size);
        return slot;
    }
    Attachment& array = m_attachments[element.dynamicIndex];
    replaceAttachment(array, nullptr, 0, size);
    internal::storeUnaligned<uint32_t>(m_payload + element.offset, size / element.elementSize);
    return array.bytes;
}

// ---- Numbers.

void Packet::setIntegerSlowly(PacketFieldArg field, uint64_t value, unsigned index) {
    const PacketElement* element = resolve(field);
    uint8_t* to = element && element->isInteger() ? singleSetInternal(*element, index) : nullptr;
    if (to) {
        internal::storeInteger(to, value, element->elementSize);
    } else {
        complain("setInteger", noMember, field);
    }
}

int64_t Packet::getIntegerSlowly(PacketFieldArg field, unsigned index) const {
    const PacketElement* element = resolve(field);
    const uint8_t* from = element && element->isInteger() ? singleGetInternal(*element, index) : nullptr;
    if (!from) {
        complain("getInteger", noMember, field);
        return 0;
    }
    const uint64_t value = loadValue(from, element->elementSize);
    return static_cast<int64_t>((value ^ element->signBit) - element->signBit);
}

void Packet::setFloatSlowly(PacketFieldArg field, double value, unsigned index) {
    const PacketElement* element = resolve(field);
    uint8_t* to = element && element->isFloat() ? singleSetInternal(*element, index) : nullptr;
    if (!to) {
        complain("setFloat", noMember, field);
    } else if (element->number == PacketNumber::Double) {
        internal::storeUnaligned(to, value);
    } else {
        internal::storeUnaligned(to, static_cast<float>(value));
    }
}

double Packet::getFloatSlowly(PacketFieldArg field, unsigned index) const {
    const PacketElement* element = resolve(field);
    const uint8_t* from = element ? singleGetInternal(*element, index) : nullptr;
    if (from && element->number == PacketNumber::Double) return internal::loadUnaligned<double>(from);
    if (from && element->number == PacketNumber::Float)
        return static_cast<double>(internal::loadUnaligned<float>(from));
    complain("getFloat", noMember, field);
    return 0;
}

void Packet::setGUID(PacketFieldArg field, const GUID& guid) {
    const PacketElement* element = resolve(field, PacketElementKind::Plain, "setGUID");
    if (!element) return;
    uint8_t* to = element->elementSize == sizeof guid ? singleSetInternal(*element, 0) : nullptr;
    if (to) {
        std::memcpy(to, guid.getBytePointer(), sizeof guid);
    } else {
        complain("setGUID", noMember, field);
    }
}

GUID Packet::getGUID(PacketFieldArg field) const {
    GUID guid;
    const PacketElement* element = resolve(field, PacketElementKind::Plain, "getGUID");
    if (!element) return guid;
    const uint8_t* from = element->elementSize == sizeof guid ? singleGetInternal(*element, 0) : nullptr;
    if (from) {
        std::memcpy(guid.getBytePointer(), from, sizeof guid);
    } else {
        complain("getGUID", noMember, field);
    }
    return guid;
}

// ---- Texts.

void Packet::setString(PacketFieldArg field, TextArg text) {
    const PacketElement* element = resolve(field, PacketElementKind::Text, "setString");
    if (!element) return;
    std::string_view cut = upToZero(text);
    if (cut.size() >= element->maximumCount) {
        complain("setString", "text cut", field, 2);
        if (element->maximumCount == 0) return;
        cut = cutText(cut, element->maximumCount - 1);
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(cut.data());
    const auto size = static_cast<unsigned>(cut.size());
    if (!element->isDynamic()) return arraySetInternal(*element, bytes, size, true);
    makeStaticWritable();
    Attachment& array = m_attachments[element->dynamicIndex];
    replaceAttachment(array, bytes, size, size + 1);
    array.bytes[size] = 0;
    internal::storeUnaligned<uint32_t>(m_payload + element->offset, array.size);
}

const char* Packet::getStringSlowly(PacketFieldArg field) const {
    const PacketElement* element = resolve(field, PacketElementKind::Text, "getString");
    if (!element) return "";
    const ConstByteSpan bytes = arrayGetInternal(*element);
    const char* wrong = bytes.empty()                     ? "member contents is empty"
                        : bytes[bytes.getSize() - 1] != 0 ? noTerminator
                                                          : nullptr;
    if (!wrong) return reinterpret_cast<const char*>(bytes.getBytePointer());
    complain("getString", wrong, field);
    return "";
}

void Packet::setStringListInternal(PacketFieldArg field, std::string_view bytes) {
    const PacketElement* element = resolve(field, PacketElementKind::Text, "setStringList");
    if (!element || !isSizeAllowed(*element, bytes.size(), "setStringList")) return;
    arraySetInternal(*element, reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<unsigned>(bytes.size()),
                     true);
}

// Every text in it has its zero.
std::string_view Packet::getStringListInternal(PacketFieldArg field) const {
    const PacketElement* element = resolve(field, PacketElementKind::Text, "getStringList");
    if (!element) return {};
    const ConstByteSpan bytes = arrayGetInternal(*element);
    const std::string_view texts(reinterpret_cast<const char*>(bytes.getBytePointer()), bytes.getSize());
    if (texts.empty()) return {};
    if (texts.back() != '\0') {
        complain("getStringList", noTerminator, field);
        return {};
    }
    if (element->isDynamic()) return texts;
    // The rest of a fixed field is zero: that is no text.
    const size_t last = texts.find_last_not_of('\0');
    return last == texts.npos ? std::string_view() : texts.substr(0, last + 2);
}

// ---- Items.

void Packet::setItem(PacketFieldArg field, const kiv::Item& item) {
    const PacketElement* element = resolve(field, PacketElementKind::Item, "setItem");
    if (!element || !isSizeAllowed(*element, item.getPlainSize(), "setItem")) return;
    arraySetInternal(*element, item.getPlainBytePointer(), item.getPlainSize(), true);
}

kiv::Item Packet::getItem(PacketFieldArg field) const {
    const PacketElement* element = resolve(field, PacketElementKind::Item, "getItem");
    if (!element) return {};
    const ConstByteSpan bytes = arrayGetInternal(*element);
    const unsigned size = std::min(bytes.getSize(), kiv::Item::maximumSize);
    const kiv::Item all(kiv::Item::ExternalBufferMode(), {bytes.getBytePointer(), size});
    auto end = all.getIterator();
    end.skipToEnd();
    return {kiv::Item::ExternalBufferMode(), {bytes.getBytePointer(), static_cast<unsigned>(end.getOffset())}};
}

// ---- Buffers.

void Packet::setBuffer(PacketFieldArg field, const uint8_t* bytes, unsigned size, bool copy) {
    const PacketElement* element = resolveBytes(field, "setBuffer");
    if (element && isSizeAllowed(*element, size, "setBuffer")) arraySetInternal(*element, bytes, size, copy);
}

void Packet::setBuffer(PacketFieldArg field, const ConstByteSpan& bytes, bool copy) {
    setBuffer(field, bytes.getBytePointer(), bytes.getSize(), copy);
}

void Packet::setBuffer(PacketFieldArg field, const kiv::Buffer& buffer, bool copy) {
    setBuffer(field, buffer.getBytePointer(), buffer.getSize(), copy);
}

const uint8_t* Packet::getBuffer(PacketFieldArg field) const {
    const PacketElement* element = resolveBytes(field, "getBuffer");
    return element ? arrayGetInternal(*element).getBytePointer() : nullptr;
}

unsigned Packet::getBufferSize(PacketFieldArg field) const {
    const PacketElement* element = resolveBytes(field, "getBufferSize");
    return element ? arrayGetInternal(*element).getSize() : 0;
}

uint8_t* Packet::allocateBuffer(PacketFieldArg field, unsigned size, bool zero) {
    const PacketElement* element = resolveBytes(field, "allocateBuffer");
    if (!element || !isSizeAllowed(*element, size, "allocateBuffer")) return nullptr;
    uint8_t* bytes = allocateInternal(*element, size);
    if (zero && size != 0) std::memset(bytes, 0, size);
    return bytes;
}

void Packet::setValues(PacketFieldArg field, const void* values, uint64_t count, unsigned valueSize) {
    const PacketElement* element = resolve(field, PacketElementKind::Plain, "setArray");
    if (element && element->elementSize != valueSize) element = complain("setArray", noMember, field);
    if (!element) return;
    // The count first: times the size it may be too large for 64 bits.
    const uint64_t size = count <= element->maximumCount ? count * valueSize : UINT64_MAX;
    if (isSizeAllowed(*element, size, "setArray"))
        arraySetInternal(*element, static_cast<const uint8_t*>(values), static_cast<unsigned>(size), true);
}

bool Packet::getValues(PacketFieldArg field, ConstByteSpan& out, unsigned valueSize) const {
    const PacketElement* element = resolve(field, PacketElementKind::Plain, "getArray");
    if (element && element->elementSize != valueSize) element = complain("getArray", noMember, field);
    if (!element) return false;
    out = arrayGetInternal(*element);
    return true;
}

} // namespace kiv
