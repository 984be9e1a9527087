#pragma once

#include "kiv/data/PacketWriter.h"
#include "kiv/process/Process.h"

#include <optional>

namespace kiv {

// Sends packets to a child as lines of its standard input, see Process::getPacketWriter(); the child reads them with a
// StdInPacketReader. A packet goes off at once as far as the pipe takes it; the rest waits for the process's ticks.
// When the buffer of 64 MiB is full, packets are dropped, with one error in the log.
// Ownership: by the Process; kept longer, it takes nothing any more. Threads: that of the Process.
class KIV_API ProcessPacketWriter : public PacketWriter, private internal::ProcessEnd {
    KIV_OBJECT(ProcessPacketWriter, PacketWriter)
public:
    // False when the child's standard input is closed: packets are dropped then, silently.
    bool valid() override;
    // Packets of more than 16777215 payload bytes are logged and not written.
    void write(Packet* packet) override;
    // From now on packets arrive with this port; the caller's packet stays as it is.
    void setPort(short port) { m_port = port; }
    void disablePort() { m_port.reset(); }

private:
    friend class Process;

    explicit ProcessPacketWriter(Process* process) : m_process(process) {}
    void onSpawn() override {}
    void onProcessDestroyed() override { m_process = nullptr; }

    Process* m_process; // null once it was destroyed
    std::optional<short> m_port;
};

} // namespace kiv
