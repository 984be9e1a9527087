#include "kiv/data/StdInPacketReader.h"

#include "kiv/core/Clock.h"
#include "kiv/data/BackgroundInput.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/StandardInput.h"
#include "kiv/tasks/ThreadPool.h"

#include <algorithm>

namespace kiv {

const size_t StdInPacketReader::maximumLine;

StdInPacketReader::StdInPacketReader() : m_piece(65536) {}

StdInPacketReader::~StdInPacketReader() = default;

bool StdInPacketReader::valid() {
    return !m_hasEnded;
}

SmartPointer<Packet> StdInPacketReader::read() {
    for (std::string_view line; nextLine(line);) {
        if (SmartPointer<Packet> packet = takeLine(line)) return packet;
    }
    return nullptr;
}

SmartPointer<Packet> StdInPacketReader::readTimeout(unsigned timeout, unsigned) {
    SmartPointer<Packet> packet = read();
    if (!m_background) return packet;
    constexpr unsigned forEver = 0xFFFFFFFF;
    const int64_t start = Clock::current().getMilliseconds();
    for (unsigned left = timeout; !packet && !m_hasEnded && left > 0; packet = read()) {
        m_background->wait(left);
        const int64_t passed = Clock::current().getMilliseconds() - start;
        if (timeout != forEver) left = static_cast<unsigned>(std::max<int64_t>(timeout - passed, 0));
    }
    return packet;
}

bool StdInPacketReader::nextLine(std::string_view& line) {
    do {
        const bool hasLine = m_lines.next(m_unread, line) || (m_hasEnded && m_lines.finish(line));
        // At the end, too: what is left there may be one character too long.
        if (m_lines.takeDropped() != 0) logging::MessageStream(3, 2) << "[STDINPACKET]line too long, dropped";
        if (hasLine || m_hasEnded) return hasLine;
    } while (fetch());
    return false;
}

// False when nothing has come and more may.
bool StdInPacketReader::fetch() {
    if (m_background) {
        m_hasEnded = !m_background->take(m_taken);
        m_unread = m_taken;
    } else {
        const size_t size = internal::readStandardInput(m_piece.data(), m_piece.size());
        m_hasEnded = size == 0;
        m_unread = {m_piece.data(), size};
    }
    return m_hasEnded || !m_unread.empty();
}

void StdInPacketReader::disableBlocking() {
    if (m_background || m_hasEnded) return;
    if (ThreadPool::current()) {
        m_background = std::make_unique<internal::BackgroundInput>();
    } else {
        logging::MessageStream(4, 2) << "[STDINPACKET]can't read in the background without a ThreadPool";
    }
}

SmartPointer<Packet> StdInPacketReader::takeLine(std::string_view line) {
    if (line.empty()) return nullptr;
    SmartPointer<Packet> packet = internal::packetOfLine(line);
    if (!packet) logging::MessageStream(1, 2) << "[STDINPACKET]" << internal::loggedLine(line);
    return packet;
}

} // namespace kiv
