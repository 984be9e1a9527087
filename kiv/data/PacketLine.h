#pragma once

#include "kiv/core/String.h"
#include "kiv/data/Packet.h"

#include <string_view>

// Lines of text among which packets travel.

namespace kiv::internal {

// The longest line that can be a packet: 16777215 payload bytes.
constexpr size_t maximumPacketLine = 7 + 2 * (sizeof(Packet::RawHeader) + Packet::maximumStreamedPayload) + 1;

// Null when this is no packet's text. Logs nothing. Defined in PacketCodecs.cpp.
KIV_API SmartPointer<Packet> decodeBase16Packet(std::string_view text);

// The packet that the line is, or null. Only what claims to be a packet and is none is logged as such, unless quiet.
KIV_API SmartPointer<Packet> packetOfLine(std::string_view line, bool isQuiet = false);

// Another line as the log shows it: as logging::foreignText(), and of a long one, or of a packet that was cut off, only
// the beginning.
KIV_API String loggedLine(std::string_view line);

} // namespace kiv::internal
