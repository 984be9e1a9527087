#include "kiv/data/PacketLine.h"

namespace kiv::internal {
namespace {

constexpr std::string_view packetBegin = "PKTB16[";
constexpr size_t shownOfBrokenPacket = 256;

} // namespace

SmartPointer<Packet> packetOfLine(std::string_view line) {
    return line.starts_with(packetBegin) ? Packet::createFromBase16String(line) : nullptr;
}

String loggedLine(std::string_view line) {
    if (!line.starts_with(packetBegin) || line.size() <= shownOfBrokenPacket)
        return String(line).utf8_escape_controlcode();
    String shown = String(line.substr(0, shownOfBrokenPacket)).utf8_escape_controlcode();
    shown += "... (" + std::to_string(line.size()) + " characters)";
    return shown;
}

} // namespace kiv::internal
