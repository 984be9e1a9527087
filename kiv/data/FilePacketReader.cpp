#include "kiv/data/FilePacketReader.h"

#include "kiv/data/PacketRecord.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileStream.h"

#include <cstring>

namespace kiv {

using internal::packetRecordHead;

FilePacketReader::FilePacketReader(const char* path) : m_file(platform::openFile(path, platform::FileMode::Read)) {
    if (m_file) std::setvbuf(m_file, nullptr, _IOFBF, internal::packetFileBuffer);
}

FilePacketReader::~FilePacketReader() {
    close();
}

void FilePacketReader::close() {
    if (m_file) std::fclose(m_file);
    m_file = nullptr;
}

bool FilePacketReader::atEnd() {
    if (!m_file) return true;
    const int next = std::getc(m_file);
    if (next == EOF) return true;
    std::ungetc(next, m_file);
    return false;
}

SmartPointer<Packet> FilePacketReader::read() {
    if (!m_file) return nullptr;
    m_recordOffset = m_offset;
    uint8_t head[packetRecordHead];
    const size_t got = std::fread(head, 1, sizeof head, m_file);
    m_offset += got;
    uint32_t payloadSize;
    if (got < sizeof payloadSize) {
        logging::MessageStream(3, 2) << "failed reading packet payloadSize";
        return nullptr;
    }
    std::memcpy(&payloadSize, head, sizeof payloadSize);
    if (payloadSize > Packet::maximumStreamedPayload) {
        m_offset = m_recordOffset;
        logging::MessageStream(3, 2) << "failed reading packet unrealistic payloadSize=" << payloadSize;
        return nullptr;
    }
    if (got < sizeof head) {
        logging::MessageStream(3, 2) << "failed reading packet header";
        return nullptr;
    }
    auto packet = makeObject<Packet>(payloadSize);
    std::memcpy(&packet->rawHeader(), head + sizeof payloadSize, sizeof(Packet::RawHeader));
    const size_t gotPayload = std::fread(packet->getPayloadPointer(), 1, payloadSize, m_file);
    m_offset += gotPayload;
    if (gotPayload < payloadSize) {
        logging::MessageStream(3, 2) << "failed reading payload";
        return nullptr;
    }
    return packet;
}

} // namespace kiv
