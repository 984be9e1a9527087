#pragma once

#include "kiv/data/Packet.h"

#include <cstddef>
#include <cstdint>

// The framing of packet files: payload size (unsigned 32 bit), header, payload.

namespace kiv::internal {

inline constexpr unsigned packetRecordHead = sizeof(uint32_t) + sizeof(Packet::RawHeader);
inline constexpr size_t packetFileBuffer = 65536;

} // namespace kiv::internal
