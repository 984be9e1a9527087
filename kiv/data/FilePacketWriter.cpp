#include "kiv/data/FilePacketWriter.h"

#include "kiv/data/PacketRecord.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileStream.h"

#include <cstring>

namespace kiv {

using internal::packetRecordHead;

FilePacketWriter::FilePacketWriter(const char* path) : m_file(platform::openFile(path, platform::FileMode::Write)) {
    if (m_file) std::setvbuf(m_file, nullptr, _IOFBF, internal::packetFileBuffer);
}

FilePacketWriter::~FilePacketWriter() {
    close();
}

bool FilePacketWriter::close() {
    if (m_file && std::fclose(m_file) != 0) complain();
    m_file = nullptr;
    return !m_hasFailed;
}

void FilePacketWriter::complain() {
    m_hasFailed = true;
    logging::MessageStream(3, 2) << "failed writing packet";
}

void FilePacketWriter::write(Packet* packet) {
    if (!m_file || !packet || !isStreamable(*packet)) return;
    const unsigned payloadSize = packet->getPayloadSize();
    m_record.resizeExtraReserve(packetRecordHead + payloadSize);
    uint8_t* to = m_record.getBytePointer();
    std::memcpy(to, &payloadSize, sizeof payloadSize);
    std::memcpy(to + sizeof payloadSize, &packet->rawHeader(), sizeof(Packet::RawHeader));
    packet->copyPayloadTo(to + packetRecordHead);
    const bool isWritten = std::fwrite(to, 1, m_record.getSize(), m_file) == m_record.getSize();
    const bool isFlushed = !packet->getFlushAfterThis() || std::fflush(m_file) == 0;
    if (!isWritten || !isFlushed) complain();
}

} // namespace kiv
