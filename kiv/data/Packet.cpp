#include "kiv/data/Packet.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <memory>

namespace kiv {

const short Packet::VersionedFlag;
const unsigned Packet::maximumStreamedPayload;

static_assert(std::endian::native == std::endian::little, "packets are copied as they lie in memory");
static_assert(sizeof(Packet::RawHeader) == 8);

namespace {

// Makes a pointer into an array of one packet one into that of the other.
template <class T, size_t n>
void moveInto(T*& pointer, T (&from)[n], T (&to)[n]) {
    const std::less<const T*> isBefore;
    if (!isBefore(pointer, from) && isBefore(pointer, from + n)) pointer = to + (pointer - from);
}

} // namespace

// Constructors delegate to the empty one, so that the destructor cleans up behind a failed allocation.

Packet::Packet(const PacketScheme* scheme, short port) : Packet() {
    m_isSchemeFixed = scheme != nullptr;
    m_header.port = port;
    m_header.replyPort = -1;
    makePayload(scheme ? scheme->getDefaults().getSize() : 0);
    if (!scheme) return;
    allocateAttachments(scheme->getDynamicArrays().size() + 1);
    m_scheme = scheme;
    m_header.id = scheme->getID();
    m_isVersioningDisabled = scheme->getMaxCargo() != 0;
    m_header.flags = m_isVersioningDisabled ? 0 : VersionedFlag;
    setDefaultValues(0);
}

Packet::Packet(unsigned size) : Packet() {
    makePayload(size);
}

Packet::Packet(unsigned size, const uint8_t* bytes, Object* owner)
    : m_payload(const_cast<uint8_t*>(bytes)), m_payloadSize(size), m_owner(owner) {}

Packet::Packet(const Packet* other) : Packet() {
    if (other) {
        copyFrom(*other);
    } else {
        makePayload(0);
    }
}

Packet::Packet(const Packet& other) : Packet() {
    copyFrom(other);
}

Packet& Packet::operator=(const Packet& other) {
    if (this != &other) Packet(other).swap(*this);
    return *this;
}

Packet::~Packet() {
    dropAttachments();
    if (!m_isPayloadBorrowed) delete[] m_payload;
    delete[] m_received;
}

void Packet::copyFrom(const Packet& other) {
    m_header = other.m_header;
    m_cachedPayloadSize = other.m_cachedPayloadSize;
    m_flushAfterThis = other.m_flushAfterThis;
    m_isVersioningDisabled = other.m_isVersioningDisabled;
    if (other.m_scheme) {
        copyContents(other, other.m_scheme, other.m_scheme->getNewestVersion().staticSize);
    } else {
        makePayload(other.m_payloadSize);
        internal::copyBytes(m_payload, other.m_payload, other.m_payloadSize);
    }
}

void Packet::swap(Packet& other) noexcept {
    if (this == &other) return;
    movePointersTo(other);
    other.movePointersTo(*this);
    std::swap(m_scheme, other.m_scheme);
    std::swap(m_payload, other.m_payload);
    std::swap(m_payloadSize, other.m_payloadSize);
    std::swap(m_header, other.m_header);
    std::swap(m_cachedPayloadSize, other.m_cachedPayloadSize);
    std::swap(m_isPayloadBorrowed, other.m_isPayloadBorrowed);
    std::swap(m_isSchemeFixed, other.m_isSchemeFixed);
    std::swap(m_flushAfterThis, other.m_flushAfterThis);
    std::swap(m_isVersioningDisabled, other.m_isVersioningDisabled);
    std::swap(m_hasHeapAttachments, other.m_hasHeapAttachments);
    std::swap(m_isStaticReceived, other.m_isStaticReceived);
    std::swap(m_inlineUsed, other.m_inlineUsed);
    std::swap(m_received, other.m_received);
    m_owner.swap(other.m_owner);
    std::swap(m_attachments, other.m_attachments);
    std::swap(m_attachmentCount, other.m_attachmentCount);
    std::swap(m_firstAttachments, other.m_firstAttachments);
    std::swap(m_inline, other.m_inline);
}

// What points into this packet's own memory points to the same place of the other, where that memory goes.
void Packet::movePointersTo(Packet& other) noexcept {
    moveInto(m_payload, m_inline, other.m_inline);
    for (size_t i = 0; i < m_attachmentCount; ++i) moveInto(m_attachments[i].bytes, m_inline, other.m_inline);
    moveInto(m_attachments, m_firstAttachments, other.m_firstAttachments);
}

void Packet::disableVersioning() {
    m_isVersioningDisabled = true;
    if (m_scheme) clearFlag(VersionedFlag);
}

void Packet::setDefaultValues(unsigned fromVersion) {
    if (!m_scheme || fromVersion > m_scheme->getMaxVersion()) return;
    makeStaticWritable();
    // The gaps between the fields are part of the defaults and zero: nothing of old memory leaves with the packet.
    const ConstByteSpan defaults = m_scheme->getDefaults();
    const uint32_t begin = fromVersion == 0 ? 0 : m_scheme->getVersion(fromVersion - 1).staticSize;
    internal::copyBytes(m_payload + begin, defaults.getBytePointer() + begin, defaults.getSize() - begin);
    const size_t arraysBefore = fromVersion == 0 ? 0 : m_scheme->getVersion(fromVersion - 1).dynamicArrays;
    const size_t arrays = m_scheme->getDynamicArrays().size();
    for (size_t i = arraysBefore; i < arrays; ++i) replaceAttachment(m_attachments[i], nullptr, 0, 0);
    if (!m_scheme->hasDynamicDefaults()) return;
    for (const PacketElement& element : m_scheme->getElements()) {
        if (element.isDynamic() && element.version >= fromVersion && !element.defaultBytes.empty()) {
            const ConstByteSpan bytes = element.defaultBytes.getConstByteSpan();
            arraySetInternal(element, bytes.getBytePointer(), bytes.getSize(), false);
        }
    }
}

// ---- Memory.

// Null when there is not enough room left. Never the end of the room: that may be the beginning of foreign memory.
uint8_t* Packet::takeInline(uint64_t size) {
    if (size == 0) return m_inline;
    if (size > inlineBytes - m_inlineUsed) return nullptr;
    uint8_t* bytes = m_inline + m_inlineUsed;
    m_inlineUsed = static_cast<uint8_t>(std::min<uint64_t>(m_inlineUsed + ((size + 7) & ~uint64_t{7}), inlineBytes));
    return bytes;
}

void Packet::makePayload(unsigned size) {
    m_payload = takeInline(size);
    m_isPayloadBorrowed = m_payload != nullptr;
    if (!m_payload) m_payload = new uint8_t[size];
    m_payloadSize = size;
}

void Packet::allocateManyAttachments(size_t count) {
    m_attachments = new Attachment[count]();
    m_attachmentCount = count;
    m_hasHeapAttachments = true;
}

void Packet::freeAttachments() noexcept {
    for (size_t i = 0; i < m_attachmentCount; ++i) {
        if (m_attachments[i].storage == Storage::Heap) delete[] m_attachments[i].bytes;
    }
    if (m_attachments != m_firstAttachments) delete[] m_attachments;
    m_attachments = m_firstAttachments;
    m_hasHeapAttachments = false;
}

// Makes room for `size` bytes, the first of them copies of `bytes`, which may be the attachment's own, and the rest
// unspecified.
void Packet::replaceAttachment(Attachment& attachment, const uint8_t* bytes, unsigned copied, unsigned size) {
    if (size != 0 && size <= attachment.size && attachment.storage != Storage::View) {
        if (copied != 0) std::memmove(attachment.bytes, bytes, copied);
        attachment.size = size;
        return;
    }
    Attachment fresh{nullptr, 0, Storage::View};
    if (size != 0) {
        fresh.bytes = takeInline(size);
        fresh.storage = fresh.bytes ? Storage::Inline : Storage::Heap;
        if (!fresh.bytes) {
            fresh.bytes = new uint8_t[size];
            m_hasHeapAttachments = true;
        }
        fresh.size = size;
        internal::copyBytes(fresh.bytes, bytes, copied);
    }
    if (attachment.storage == Storage::Heap) delete[] attachment.bytes;
    attachment = fresh;
}

// Frees nothing: arrays go on lying in the received bytes, and what is about to be written may come from there.
void Packet::makeStaticWritable() {
    m_isSchemeFixed = true;
    if (!m_isStaticReceived) return;
    const unsigned size = m_scheme->getNewestVersion().staticSize;
    uint8_t* own = takeInline(size);
    const bool isInline = own != nullptr;
    if (!own) own = new uint8_t[size];
    internal::copyBytes(own, m_payload, size);
    storeCounts(own, m_scheme->getDynamicArrays().size());
    m_received = m_isPayloadBorrowed ? nullptr : m_payload;
    m_payload = own;
    m_payloadSize = size;
    m_isPayloadBorrowed = isInline;
    m_isStaticReceived = false;
}

// Received memory may belong to somebody who changes it: what was checked is the arrays' lengths, not the counts there.
void Packet::storeCounts(uint8_t* staticPart, size_t dynamicArrays) const {
    for (size_t i = 0; i < dynamicArrays; ++i) {
        const PacketScheme::DynamicArray& array = m_scheme->getDynamicArrays()[i];
        const uint32_t count = m_attachments[i].size / array.elementSize;
        std::memcpy(staticPart + array.countOffset, &count, sizeof count);
    }
}

void Packet::copyContents(const Packet& from, const PacketScheme* scheme, unsigned staticSize) {
    const auto padded = [](size_t size) { return (size + 7) & ~size_t{7}; };
    const unsigned newestSize = scheme->getNewestVersion().staticSize;
    size_t total = padded(newestSize);
    for (size_t i = 0; i < from.m_attachmentCount; ++i) total += padded(from.m_attachments[i].size);

    std::unique_ptr<uint8_t[]> heap;
    std::unique_ptr<Attachment[]> copies(new Attachment[from.m_attachmentCount]());
    uint8_t* block = takeInline(total);
    if (!block) {
        heap.reset(new uint8_t[total]);
        block = heap.get();
    }
    internal::copyBytes(block, from.m_payload, staticSize);
    uint8_t* at = block + padded(newestSize);
    for (size_t i = 0; i < from.m_attachmentCount; ++i) {
        const Attachment& source = from.m_attachments[i];
        if (source.size == 0) continue;
        std::memcpy(at, source.bytes, source.size);
        copies[i] = {at, source.size, Storage::View};
        at += padded(source.size);
    }

    const size_t count = from.m_attachmentCount;
    dropAttachments();
    allocateAttachments(count);
    std::copy_n(copies.get(), count, m_attachments);
    if (!m_isPayloadBorrowed) delete[] m_payload;
    m_payload = block;
    m_payloadSize = newestSize;
    m_isPayloadBorrowed = heap == nullptr;
    static_cast<void>(heap.release());
    m_isStaticReceived = false;
    m_isSchemeFixed = true;
    m_scheme = scheme;
    m_owner.reset();
    storeCounts(m_payload, count - 1);
}

} // namespace kiv
