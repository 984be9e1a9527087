// The free tail of packets without versions.

#include "kiv/data/Packet.h"
#include "kiv/logging/MessageStream.h"

namespace kiv {

// Null and a log line when the packet can't carry so much.
Packet::Attachment* Packet::writableCargo(uint64_t size, const char* operation) {
    const uint64_t maximum = m_scheme && !hasFlag(VersionedFlag) ? m_scheme->getMaxCargo() : 0;
    if (maximum == 0 || size > maximum) {
        logging::MessageStream(3, 2) << "Packet::" << operation << ": cargo too large, size=" << size
                                     << ", maximum=" << maximum << ", m_scheme->getFullName()="
                                     << (m_scheme ? m_scheme->getFullName().c_str() : "");
        return nullptr;
    }
    m_isSchemeFixed = true;
    return &m_attachments[m_attachmentCount - 1];
}

void Packet::setCargo(const uint8_t* bytes, unsigned size, bool copy) {
    Attachment* cargo = writableCargo(size, "setCargo");
    if (!cargo) return;
    if (copy || size == 0) return replaceAttachment(*cargo, bytes, size, size);
    replaceAttachment(*cargo, nullptr, 0, 0);
    *cargo = {const_cast<uint8_t*>(bytes), size, Storage::View};
}

void Packet::setCargo(const kiv::Buffer& buffer, bool copy) {
    setCargo(buffer.getBytePointer(), buffer.getSize(), copy);
}

void Packet::setCargo(const ConstByteSpan& bytes, bool copy) {
    setCargo(bytes.getBytePointer(), bytes.getSize(), copy);
}

void Packet::setCargoString(TextArg text) {
    const std::string_view kept = text.substr(0, text.find('\0'));
    Attachment* cargo = writableCargo(uint64_t{kept.size()} + 1, "setCargoString");
    if (!cargo) return;
    const auto size = static_cast<unsigned>(kept.size());
    replaceAttachment(*cargo, reinterpret_cast<const uint8_t*>(kept.data()), size, size + 1);
    cargo->bytes[size] = 0;
}

uint8_t* Packet::allocateCargo(unsigned size, bool zero) {
    Attachment* cargo = writableCargo(size, "allocateCargo");
    if (!cargo) return nullptr;
    replaceAttachment(*cargo, nullptr, 0, size);
    if (zero && size != 0) std::memset(cargo->bytes, 0, size);
    return cargo->bytes;
}

const uint8_t* Packet::getCargo() const {
    return m_scheme ? m_attachments[m_attachmentCount - 1].bytes : nullptr;
}

unsigned Packet::getCargoSize() const {
    return m_scheme ? m_attachments[m_attachmentCount - 1].size : 0;
}

String Packet::getCargoString() const {
    const std::string_view cargo(reinterpret_cast<const char*>(getCargo()), getCargoSize());
    return String(cargo.substr(0, cargo.find('\0')));
}

} // namespace kiv
