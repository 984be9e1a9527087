#include "kiv/logging/ConsolePrinter.h"

#include "kiv/platform/Console.h"
#include <string>

namespace kiv::internal {
namespace {

constexpr std::string_view packetTag = "PKTB16[";

// Position of the next line, from `position` on, that begins like a packet.
size_t findPacketLine(std::string_view lines, size_t position) {
    while ((position = lines.find(packetTag, position)) != lines.npos) {
        if (position == 0 || lines[position - 1] == '\n') return position;
        position += packetTag.size();
    }
    return position;
}

} // namespace

void printLines(std::string_view lines) {
    size_t found = findPacketLine(lines, 0);
    if (found == lines.npos) {
        writeStandardOutput(lines);
        return;
    }
    std::string broken;
    size_t copied = 0;
    for (; found != lines.npos; found = findPacketLine(lines, found + packetTag.size())) {
        broken += lines.substr(copied, found - copied);
        broken += ' ';
        copied = found;
    }
    broken += lines.substr(copied);
    writeStandardOutput(broken);
}

} // namespace kiv::internal
