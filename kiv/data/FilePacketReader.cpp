#include "kiv/data/FilePacketReader.h"

#include "kiv/data/PacketRecord.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileStream.h"

namespace kiv {

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

bool FilePacketReader::take(void* to, size_t size) {
    const size_t taken = std::fread(to, 1, size, m_file);
    m_position += taken;
    m_offset = m_position;
    return taken == size;
}

SmartPointer<Packet> FilePacketReader::read() {
    if (!m_file) return nullptr;
    m_recordOffset = m_position;
    uint32_t payloadSize;
    if (!take(&payloadSize, sizeof payloadSize)) {
        logging::MessageStream(3, 2) << "failed reading packet payloadSize";
        return nullptr;
    }
    if (payloadSize > Packet::maximumStreamedPayload) {
        m_offset = m_recordOffset;
        logging::MessageStream(3, 2) << "failed reading packet unrealistic payloadSize=" << payloadSize;
        return nullptr;
    }
    Packet::RawHeader header;
    if (!take(&header, sizeof header)) {
        logging::MessageStream(3, 2) << "failed reading packet header";
        return nullptr;
    }
    auto packet = makeObject<Packet>(payloadSize);
    packet->rawHeader() = header;
    if (!take(packet->getPayloadPointer(), payloadSize)) {
        logging::MessageStream(3, 2) << "failed reading payload";
        return nullptr;
    }
    return packet;
}

} // namespace kiv
