#include "kiv/data/StdOutPacketWriter.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/platform/Console.h"

namespace kiv {

bool StdOutPacketWriter::valid() {
    return !m_hasFailed;
}

void StdOutPacketWriter::write(Packet* packet) {
    if (!packet || m_hasFailed || !isStreamable(*packet)) return;
    if (m_port) packet->setPort(*m_port);
    // A line feed first: other output may have left a line unfinished.
    m_line.assign(1, '\n');
    packet->appendBase16To(m_line);
    m_line += '\n';
    m_hasFailed = !internal::writeStandardOutput(m_line);
    if (m_hasFailed) logging::MessageStream(3, 2) << "failed writing packet";
}

} // namespace kiv
