// Writing the wire form of a payload, and the two forms that carry header and payload together.

#include "kiv/core/Codecs.h"
#include "kiv/data/ByteConsumer.h"
#include "kiv/data/Packet.h"
#include "kiv/data/PacketLine.h"
#include "kiv/logging/MessageStream.h"

#include <stdexcept>

namespace kiv {
namespace {

constexpr std::string_view base16Prefix = "PKTB16[";
constexpr std::string_view base16Suffix = "]";
constexpr uint8_t zeros[8] = {};

struct MemorySink {
    uint8_t* to;

    void write(const void* bytes, unsigned size) {
        std::memcpy(to, bytes, size);
        to += size;
    }
};

struct ConsumerSink {
    ByteConsumer* consumer;

    void write(const void* bytes, unsigned size) { consumer->consume(static_cast<const uint8_t*>(bytes), size); }
};

class Base16Encoder : public ByteConsumer {
public:
    explicit Base16Encoder(char* to) : m_to(to) {}

    void consume(const uint8_t* bytes, unsigned size) override {
        internal::encodeBase16(bytes, size, m_to);
        m_to += internal::encodedBase16Size(size);
    }
    char* getEnd() const { return m_to; }

private:
    char* m_to;
};

} // namespace

const PacketScheme::Version& Packet::getWrittenVersion() const {
    return hasFlag(VersionedFlag) ? m_scheme->getNewestVersion() : m_scheme->getVersion(0);
}

uint64_t Packet::computePayloadSize() const {
    if (!m_scheme) return m_payloadSize;
    const PacketScheme::Version& version = getWrittenVersion();
    uint64_t position = version.staticSize;
    for (uint32_t i = 0; i < version.dynamicArrays; ++i) {
        if (m_attachments[i].size == 0) continue;
        const uint64_t mask = m_scheme->getDynamicArrays()[i].mask;
        position = ((position + mask) & ~mask) + m_attachments[i].size;
    }
    return position + (hasFlag(VersionedFlag) ? 4 : m_attachments[m_attachmentCount - 1].size);
}

unsigned Packet::getPayloadSize() const {
    const uint64_t size = computePayloadSize();
    if (size > 0xFFFFFFFF) throw std::length_error("kiv::Packet: payload above 4 GiB");
    return static_cast<unsigned>(size);
}

template <class Sink>
void Packet::writeBehindStatic(Sink& sink) const {
    const PacketScheme::Version& version = getWrittenVersion();
    uint64_t position = version.staticSize;
    for (uint32_t i = 0; i < version.dynamicArrays; ++i) {
        const Attachment& array = m_attachments[i];
        if (array.size == 0) continue;
        const uint64_t mask = m_scheme->getDynamicArrays()[i].mask;
        const uint64_t gap = (uint64_t{0} - position) & mask;
        if (gap != 0) sink.write(zeros, static_cast<unsigned>(gap));
        sink.write(array.bytes, array.size);
        position += gap + array.size;
    }
    if (hasFlag(VersionedFlag)) {
        const uint32_t suffix = m_scheme->getMaxVersion() << 24 | version.staticSize;
        sink.write(&suffix, sizeof suffix);
    } else if (const Attachment& cargo = m_attachments[m_attachmentCount - 1]; cargo.size != 0) {
        sink.write(cargo.bytes, cargo.size);
    }
}

void Packet::copyPayloadTo(uint8_t* to) const {
    const unsigned staticSize = m_scheme ? getWrittenVersion().staticSize : m_payloadSize;
    internal::copyBytes(to, m_payload, staticSize);
    if (!m_scheme) return;
    if (m_isStaticReceived) storeCounts(to, getWrittenVersion().dynamicArrays);
    MemorySink sink{to + staticSize};
    writeBehindStatic(sink);
}

void Packet::getPayloadConsumed(ByteConsumer* consumer) const {
    const unsigned staticSize = m_scheme ? getWrittenVersion().staticSize : m_payloadSize;
    if (m_scheme && m_isStaticReceived) {
        kiv::Buffer copy(m_payload, staticSize);
        storeCounts(copy.getBytePointer(), getWrittenVersion().dynamicArrays);
        if (staticSize != 0) consumer->consume(copy.getBytePointer(), staticSize);
    } else if (staticSize != 0) {
        consumer->consume(m_payload, staticSize);
    }
    if (!m_scheme) return;
    ConsumerSink sink{consumer};
    writeBehindStatic(sink);
}

// ---- With manifest.

kiv::Buffer Packet::convertToBufferWithManifest() const {
    const uint64_t size = sizeof(Manifest) + uint64_t{getPayloadSize()};
    if (size > 0xFFFFFFFF) throw std::length_error("kiv::Packet: payload above 4 GiB");
    kiv::Buffer buffer(static_cast<unsigned>(size));
    const Manifest what = manifest();
    std::memcpy(buffer.getBytePointer(), &what, sizeof what);
    copyPayloadTo(buffer.getBytePointer() + sizeof what);
    return buffer;
}

SmartPointer<Packet> Packet::createFromBufferWithManifest(const ConstByteSpan& bytes) {
    Manifest what;
    if (bytes.getSize() < sizeof what) {
        logging::MessageStream(3, 2) << "corrupt buffer_manifest packet encoding";
        return nullptr;
    }
    std::memcpy(&what, bytes.getBytePointer(), sizeof what);
    const unsigned size = bytes.getSize() - static_cast<unsigned>(sizeof what);
    auto packet = makeObject<Packet>(size);
    packet->m_header.id = what.id;
    packet->m_header.flags = what.flags;
    std::memcpy(packet->m_payload, bytes.getBytePointer() + sizeof what, size);
    return packet;
}

// ---- Base16.

String Packet::convertToBase16String() const {
    std::string text;
    appendBase16To(text);
    return String(std::move(text));
}

void Packet::appendBase16To(std::string& text) const {
    const size_t begin = text.size();
    text.resize(begin + getBase16Size());
    writeBase16To(text.data() + begin, m_header);
}

size_t Packet::getBase16Size() const {
    const uint64_t digits = internal::encodedBase16Size(sizeof m_header + uint64_t{getPayloadSize()});
    return base16Prefix.size() + digits + base16Suffix.size();
}

void Packet::writeBase16To(char* to, const RawHeader& header) const {
    to += base16Prefix.copy(to, base16Prefix.size());
    Base16Encoder encoder(to);
    encoder.consume(reinterpret_cast<const uint8_t*>(&header), sizeof header);
    getPayloadConsumed(&encoder);
    base16Suffix.copy(encoder.getEnd(), base16Suffix.size());
}

SmartPointer<Packet> internal::decodeBase16Packet(std::string_view text) {
    if (text.size() > 0x7FFFFFFF || !text.starts_with(base16Prefix) || !text.ends_with(base16Suffix)) return nullptr;
    text.remove_prefix(base16Prefix.size());
    text.remove_suffix(base16Suffix.size());
    constexpr size_t headerDigits = 2 * sizeof(Packet::RawHeader);
    if (text.size() % 2 != 0 || text.size() < headerDigits) return nullptr;
    uint8_t header[sizeof(Packet::RawHeader)];
    if (!internal::decodeBase16(text.data(), headerDigits, header)) return nullptr;
    text.remove_prefix(headerDigits);
    auto packet = makeObject<Packet>(static_cast<unsigned>(text.size() / 2));
    std::memcpy(&packet->rawHeader(), header, sizeof header);
    if (!internal::decodeBase16(text.data(), text.size(), packet->getPayloadPointer())) return nullptr;
    return packet;
}

SmartPointer<Packet> Packet::createFromBase16String(TextArg text) {
    SmartPointer<Packet> packet = internal::decodeBase16Packet(text);
    if (!packet) logging::MessageStream(3, 2) << "corrupt base16 packet encoding";
    return packet;
}

} // namespace kiv
