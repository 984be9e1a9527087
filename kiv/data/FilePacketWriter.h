#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/data/PacketWriter.h"

#include <cstdio>

namespace kiv {

// Writes a packet file, see FilePacketReader. What it writes may stay in memory until the file is closed, or a packet
// asks for more (Packet::setFlushAfterThis).
class KIV_API FilePacketWriter : public PacketWriter {
    KIV_OBJECT(FilePacketWriter, PacketWriter)
public:
    // Creates or truncates the file of this UTF-8 path.
    explicit FilePacketWriter(const char* path);
    FilePacketWriter(const FilePacketWriter&) = delete;
    FilePacketWriter& operator=(const FilePacketWriter&) = delete;
    ~FilePacketWriter() override;

    bool isOpen() const { return m_file != nullptr; }
    // True when everything that was written has reached the file.
    bool close();
    // Silent when no file is open. Packets of more than 16777215 payload bytes are logged and not written.
    void write(Packet* packet) override;

private:
    void complain();

    std::FILE* m_file;
    Buffer m_record;
    bool m_hasFailed = false;
};

} // namespace kiv
