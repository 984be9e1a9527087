#pragma once

#include "kiv/data/PacketWriter.h"

#include <optional>
#include <string>

namespace kiv {

// Writes packets to standard output, each as its base16 text on a line of its own among other output, and at once.
// Writers on several threads do not mix their lines.
class KIV_API StdOutPacketWriter : public PacketWriter {
    KIV_OBJECT(StdOutPacketWriter, PacketWriter)
public:
    // From now on every packet gets this port when it is written; the caller's packet is changed.
    void setPort(short port) { m_port = port; }
    void disablePort() { m_port.reset(); }
    // False once a write has failed: nobody reads any more. Later packets are dropped.
    bool valid() override;
    // Packets of more than 16777215 payload bytes are logged and not written.
    void write(Packet* packet) override;

private:
    std::optional<short> m_port;
    std::string m_line; // of the longest packet so far, the first LF included
    bool m_hasFailed = false;
};

} // namespace kiv
