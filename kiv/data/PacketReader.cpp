#include "kiv/data/PacketReader.h"

namespace kiv {

bool PacketReader::valid() {
    return true;
}

SmartPointer<Packet> PacketReader::readTimeout(unsigned, unsigned) {
    return read();
}

} // namespace kiv
