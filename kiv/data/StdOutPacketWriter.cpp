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
    const size_t size = packet->getBase16Size();
    if (m_line.size() < size + 2) m_line.assign(size + 2, '\n');
    packet->writeBase16To(m_line.data() + 1, packet->rawHeader());
    m_line[size + 1] = '\n';
    m_hasFailed = !internal::writeStandardOutput({m_line.data(), size + 2});
    if (m_hasFailed) logging::MessageStream(3, 2) << "failed writing packet";
}

} // namespace kiv
