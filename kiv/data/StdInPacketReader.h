#pragma once

#include "kiv/data/LineAssembler.h"
#include "kiv/data/PacketLine.h"
#include "kiv/data/PacketReader.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

namespace internal {
class BackgroundInput;
}

// Reads the packets that arrive on standard input as lines of base16 text, see StdOutPacketWriter. Other lines are
// logged behind "[STDINPACKET]", empty ones skipped. It takes standard input in large pieces: nobody else may read it.
class KIV_API StdInPacketReader : public PacketReader {
    KIV_OBJECT(StdInPacketReader, PacketReader)
public:
    // The longest line that can be a packet: 16777215 payload bytes.
    static const size_t maximumLine = internal::maximumPacketLine;

    StdInPacketReader();
    // Ends the reading in the background.
    ~StdInPacketReader() override;

    // False once the input has ended and everything was read.
    bool valid() override;
    // Waits for the next packet; null when the input has ended, or when there is none yet and blocking is disabled.
    SmartPointer<Packet> read() override;
    // While blocking is disabled: waits for the next packet at most `timeout` milliseconds, 0xFFFFFFFF is no limit.
    // What comes is noticed at once, the interval does not matter. Else what read() does.
    SmartPointer<Packet> readTimeout(unsigned timeout, unsigned interval) override;
    // From now on read() does not wait: a thread of the current ThreadPool, which must outlive the reader, reads ahead
    // until a megabyte waits. Without a pool it is logged and changes nothing.
    void disableBlocking();

private:
    bool nextLine(std::string_view& line);
    bool fetch();
    static SmartPointer<Packet> takeLine(std::string_view line);

    internal::LineAssembler m_lines{maximumLine};
    std::vector<char> m_piece;
    std::string_view m_unread; // of the piece, or of the string
    std::string m_taken;       // from the background
    std::unique_ptr<internal::BackgroundInput> m_background;
    bool m_hasEnded = false;
};

} // namespace kiv
