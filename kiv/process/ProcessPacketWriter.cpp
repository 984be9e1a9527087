#include "kiv/process/ProcessPacketWriter.h"

namespace kiv {

ProcessPacketWriter* Process::getPacketWriter() {
    if (!m_writer) m_writer = attach(new ProcessPacketWriter(this));
    return m_writer;
}

bool ProcessPacketWriter::valid() {
    return m_process && m_process->isInputOpen();
}

void ProcessPacketWriter::write(Packet* packet) {
    if (!packet || !valid() || !isStreamable(*packet)) return;
    const size_t size = packet->getBase16Size();
    char* const line = m_process->reserveInput(size + 1);
    if (!line) return;
    Packet::RawHeader header = packet->rawHeader();
    if (m_port) header.port = *m_port;
    packet->writeBase16To(line, header);
    line[size] = '\n';
    m_process->commitInput(size + 1);
    m_process->write_stdin();
}

} // namespace kiv
