#include "kiv/data/PacketWriter.h"

#include "kiv/logging/MessageStream.h"

namespace kiv {

bool PacketWriter::valid() {
    return true;
}

bool PacketWriter::isStreamable(const Packet& packet) {
    const unsigned size = packet.getPayloadSize();
    if (size <= Packet::maximumStreamedPayload) return true;
    logging::MessageStream(3, 2) << "failed writing packet unrealistic payloadSize=" << size;
    return false;
}

} // namespace kiv
