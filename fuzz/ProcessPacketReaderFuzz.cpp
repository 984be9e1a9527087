#include "Silence.h"

#include "kiv/data/LineAssembler.h"
#include "kiv/data/PacketLine.h"
#include "kiv/process/ByteRing.h"
#include "kiv/process/ChildLine.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace kiv::internal;
using Lines = std::vector<std::string>;

constexpr size_t limit = 40;

Lines linesOf(std::string_view bytes, unsigned& dropped) {
    Lines lines;
    while (!bytes.empty()) {
        std::string_view line = bytes.substr(0, bytes.find('\n'));
        bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
        if (line.ends_with('\r')) line.remove_suffix(1);
        // Behind the last line end, nothing is no line.
        if (line.size() > limit)
            ++dropped;
        else
            lines.emplace_back(line);
    }
    return lines;
}

// As the reader takes them out of a process's buffer, here a small one.
class Channel {
public:
    void pass(std::string_view bytes) {
        while (!bytes.empty()) {
            const std::span<char> room = m_ring.writable();
            const size_t count = bytes.copy(room.data(), room.size());
            m_ring.commit(count);
            bytes.remove_prefix(count);
            while (takeFromRun()) {
            }
        }
    }
    void finish() {
        m_isOpen = false;
        while (takeFromRun()) {
        }
        if (std::string_view line; m_assembler.finish(line)) m_lines.emplace_back(line);
        m_dropped += m_assembler.takeDropped();
    }

    Lines m_lines;
    unsigned m_dropped = 0;

private:
    bool takeFromRun() {
        const std::string_view run = m_ring.readable();
        const bool canGrow = m_isOpen && !m_ring.full() && run.size() == m_ring.size();
        std::string_view left = run;
        for (std::string_view line;
             m_assembler.next(left, line, canGrow ? LineAssembler::Rest::Left : LineAssembler::Rest::Copied);)
            m_lines.emplace_back(line);
        m_dropped += m_assembler.takeDropped();
        m_ring.consume(run.size() - left.size());
        return left.size() < run.size();
    }

    ByteRing m_ring{32};
    LineAssembler m_assembler{limit};
    bool m_isOpen = true;
};

void readLine(const std::string& line) {
    const ChildLine read = readChildLine(line, 1);
    if (read.level < 0 || read.level > 3 || !line.ends_with(read.text)) std::abort();
    if (read.text.size() == line.size() && read.level != 1) std::abort();
    loggedLine(read.text);
    // What is taken for a packet is one: its text comes out again, but for the case of the digits.
    if (const auto packet = packetOfLine(line)) {
        std::string text;
        packet->appendBase16To(text);
        if (text.size() != line.size() || packetOfLine(text)->getPayloadSize() != packet->getPayloadSize())
            std::abort();
    }
}

} // namespace

// The lines are those of the whole text, however the bytes arrive.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    unsigned dropped = 0;
    const Lines expected = linesOf(bytes, dropped);
    Channel channel;
    const size_t piece = 1 + data[0];
    for (size_t at = 0; at < bytes.size(); at += piece) channel.pass(bytes.substr(at, piece));
    channel.finish();
    if (channel.m_lines != expected || channel.m_dropped != dropped) std::abort();
    for (const std::string& line : expected) readLine(line);
    return 0;
}
