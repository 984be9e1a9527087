#pragma once

#include "kiv/data/LineAssembler.h"
#include "kiv/data/PacketLine.h"
#include "kiv/data/PacketReader.h"

#include <string_view>
#include <vector>

namespace kiv {

// Reads the packets that arrive on standard input as lines of base16 text, see StdOutPacketWriter. Other lines are
// logged behind "[STDINPACKET]", empty ones skipped. It takes standard input in large pieces: nobody else may read it.
class KIV_API StdInPacketReader : public PacketReader {
    KIV_OBJECT(StdInPacketReader, PacketReader)
public:
    // The longest line that can be a packet: 16777215 payload bytes.
    static const size_t maximumLine = internal::maximumPacketLine;

    StdInPacketReader();

    // False once the input has ended and everything was read.
    bool valid() override;
    // Waits for the next packet; null when the input has ended.
    SmartPointer<Packet> read() override;
    // From now on read() does not wait: lines are read in the background. Needs a task queue; defined with it.
    void disableBlocking();

private:
    bool nextLine(std::string_view& line);
    static SmartPointer<Packet> takeLine(std::string_view line);

    internal::LineAssembler m_lines{maximumLine};
    std::vector<char> m_piece;
    std::string_view m_unread; // of the piece
    bool m_hasEnded = false;
};

} // namespace kiv
