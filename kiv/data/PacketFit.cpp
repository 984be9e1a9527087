// Reading the wire form of a payload. The bytes are hostile, and borrowed ones may change meanwhile: every length is
// read once, computed in 64 bits and checked before a pointer is made of it.

#include "kiv/data/ItemInline.h"
#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"

#include <algorithm>

namespace kiv {
namespace {

// Streams what is wrong with a packet between the fixed beginning and end. By value: what is looked at by reference
// can't stay in a register.
template <class... T>
KIV_NOINLINE bool refuse(T... what) {
    logging::MessageStream stream(3, 2);
    stream << "invalid packet received (";
    (stream << ... << what) << ")";
    return false;
}

} // namespace

KIV_ALWAYS_INLINE bool Packet::readVersion(const PacketScheme& scheme, Received& received) const {
    const bool isVersioned = hasFlag(VersionedFlag);
    uint32_t sentStatic = 0;
    received.usable = m_payloadSize;
    if (isVersioned) {
        if (m_payloadSize < 4) return refuse("packet too small, no version suffix");
        received.usable = m_payloadSize - 4;
        const auto suffix = internal::loadUnaligned<uint32_t>(m_payload + received.usable);
        sentStatic = suffix & 0xFFFFFF;
        received.version = std::min(suffix >> 24, scheme.getMaxVersion());
        if (sentStatic > received.usable) return refuse("packet too small, static size does not match payloadsize");
    }
    // A branch that is nearly always the same: what follows need not wait for the suffix.
    const bool isNewest = received.version == scheme.getMaxVersion();
    received.expected = isNewest ? scheme.getNewestVersion() : scheme.getVersion(received.version);
    const uint32_t expected = received.expected.staticSize;
    if (expected > received.usable)
        return refuse("packet too small, expected versionSize=", expected, ", actual size=", m_payloadSize);
    if (isVersioned && sentStatic < expected) return refuse("packet too small, static size does not match versionSize");
    // A newer sender's static part may be longer than the one known here; its end is skipped.
    received.cursor = isVersioned ? sentStatic : expected;
    return true;
}

KIV_ALWAYS_INLINE bool Packet::placeArrays(const PacketScheme& scheme, Received& received) {
    // Far beyond every payload, and low enough for one more array behind it.
    constexpr uint64_t cursorLimit = uint64_t{1} << 62;
    const PacketScheme::DynamicArray* array = scheme.getDynamicArrays().data();
    Attachment* attachment = m_attachments;
    uint64_t cursor = received.cursor;
    for (uint32_t i = 0; i < received.expected.dynamicArrays; ++i, ++array, ++attachment) {
        const auto count = internal::loadUnaligned<uint32_t>(m_payload + array->countOffset);
        if (count > array->maximumCount)
            return refuse("dynamic array exceeded bounds, size=", count, ", maximum=", array->maximumCount);
        const uint64_t size = uint64_t{count} * array->elementSize;
        if (size == 0) continue;
        const uint64_t begin = (cursor + array->mask) & ~uint64_t{array->mask};
        cursor = begin + size;
        if (cursor <= received.usable) {
            attachment->bytes = m_payload + begin;
            attachment->size = static_cast<uint32_t>(size);
        } else if (cursor > cursorLimit) {
            cursor = cursorLimit;
        }
    }
    if (cursor > received.usable)
        return refuse("packet too small, expected size=", cursor, ", actual size=", m_payloadSize);
    received.cursor = cursor;
    return true;
}

KIV_ALWAYS_INLINE bool Packet::placeCargo(const PacketScheme& scheme, const Received& received) {
    const uint64_t size = received.usable - received.cursor;
    if (hasFlag(VersionedFlag) || size == 0) return true;
    if (size > scheme.getMaxCargo())
        return refuse("packet too large, expected size=", received.cursor, ", actual size=", m_payloadSize);
    m_attachments[m_attachmentCount - 1] = {m_payload + received.cursor, static_cast<uint32_t>(size), Storage::View};
    return true;
}

// On success the attachments show the arrays and the cargo.
KIV_ALWAYS_INLINE bool Packet::checkReceived(const PacketScheme& scheme, Received& received) {
    if (m_header.id != scheme.getID()) return refuse("packet id wrong ", m_header.id, " != ", scheme.getID());
    if (!readVersion(scheme, received)) return false;
    allocateAttachments(scheme.getDynamicArrays().size() + 1);
    return placeArrays(scheme, received) && placeCargo(scheme, received);
}

bool Packet::fit(const PacketScheme* scheme) {
    if (!scheme) return false;
    if (m_scheme == scheme) return true;
    if (m_isSchemeFixed) return false;
    dropAttachments();
    m_scheme = nullptr;
    m_isStaticReceived = false;
    Received received;
    if (!checkReceived(*scheme, received)) {
        dropAttachments();
        return false;
    }
    m_isVersioningDisabled = !hasFlag(VersionedFlag);
    if (received.version == scheme->getMaxVersion()) {
        m_scheme = scheme;
        m_isStaticReceived = true;
    } else {
        // Raw until it has the newest layout: memory may run out.
        copyContents(*this, scheme, received.expected.staticSize);
        setDefaultValues(received.version + 1);
    }
    return true;
}

} // namespace kiv
