#pragma once

#include "kiv/data/PacketWriter.h"

#include <deque>

namespace kiv {

// A queue of packets in memory, which it keeps a reference to.
class KIV_API DequePacketWriter : public PacketWriter {
    KIV_OBJECT(DequePacketWriter, PacketWriter)
public:
    // At the back.
    void write(Packet* packet) override;
    void push_front(Packet* packet);
    // Takes the packet at the front; null when the queue is empty.
    SmartPointer<Packet> fetch();
    size_t size() const { return m_packets.size(); }

private:
    std::deque<SmartPointer<Packet>> m_packets;
};

} // namespace kiv
