#include "kiv/data/PacketLine.h"

#include "kiv/logging/ForeignText.h"

namespace kiv::internal {
namespace {

constexpr std::string_view packetBegin = "PKTB16[";
constexpr size_t shownOfBrokenPacket = 256;
constexpr size_t shownOfLine = 65536;

} // namespace

SmartPointer<Packet> packetOfLine(std::string_view line, bool isQuiet) {
    if (!line.starts_with(packetBegin)) return nullptr;
    return isQuiet ? decodeBase16Packet(line) : Packet::createFromBase16String(line);
}

String loggedLine(std::string_view line) {
    const size_t limit = line.starts_with(packetBegin) ? shownOfBrokenPacket : shownOfLine;
    if (line.size() <= limit) return logging::foreignText(line);
    String shown = logging::foreignText(line.substr(0, limit));
    shown += "... (" + std::to_string(line.size()) + " characters)";
    return shown;
}

} // namespace kiv::internal
