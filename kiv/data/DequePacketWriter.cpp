#include "kiv/data/DequePacketWriter.h"

#include <utility>

namespace kiv {

void DequePacketWriter::write(Packet* packet) {
    if (packet) m_packets.emplace_back(packet);
}

void DequePacketWriter::push_front(Packet* packet) {
    if (packet) m_packets.emplace_front(packet);
}

SmartPointer<Packet> DequePacketWriter::fetch() {
    if (m_packets.empty()) return nullptr;
    SmartPointer<Packet> packet = std::move(m_packets.front());
    m_packets.pop_front();
    return packet;
}

} // namespace kiv
