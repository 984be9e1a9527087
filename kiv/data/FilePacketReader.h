#pragma once

#include "kiv/data/PacketReader.h"

#include <cstdint>
#include <cstdio>

namespace kiv {

// Reads a packet file: records of payload size (4 bytes), header (8) and payload, one after another. It does not look
// for the next record behind a damaged one, and goes on with the byte behind what it has taken: stop at the first
// failure.
class KIV_API FilePacketReader : public PacketReader {
    KIV_OBJECT(FilePacketReader, PacketReader)
public:
    // A UTF-8 path.
    explicit FilePacketReader(const char* path);
    FilePacketReader(const FilePacketReader&) = delete;
    FilePacketReader& operator=(const FilePacketReader&) = delete;
    ~FilePacketReader() override;

    bool isOpen() const { return m_file != nullptr; }
    void close();
    // Null at the end too, which is logged like any short read: ask atEnd() first where that is no failure.
    SmartPointer<Packet> read() override;
    // True when no byte is left, or no file open. May wait when the file is a pipe.
    bool atEnd();

    // Where the record begins that read() has yielded or failed at last.
    uint64_t getRecordOffset() const { return m_recordOffset; }
    // Where the next record begins; after a failure, of the first byte that is wrong or missing.
    uint64_t getOffset() const { return m_offset; }

private:
    bool take(void* to, size_t size);

    std::FILE* m_file;
    uint64_t m_position = 0; // in the file
    uint64_t m_recordOffset = 0;
    uint64_t m_offset = 0;
};

} // namespace kiv
