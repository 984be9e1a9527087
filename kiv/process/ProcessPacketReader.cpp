#include "kiv/process/ProcessPacketReader.h"

#include "kiv/core/Clock.h"
#include "kiv/data/PacketLine.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/process/ChildLine.h"

#include <algorithm>

namespace kiv {

ProcessPacketReader* Process::getPacketReader() {
    if (!m_reader) m_reader = attach(new ProcessPacketReader(this));
    return m_reader;
}

ProcessPacketReader::ProcessPacketReader(Process* process) : m_process(process), m_lines(internal::maximumPacketLine) {}

void ProcessPacketReader::onSpawn() {
    reportLeftOut(true);
    m_budget = internal::LineBudget();
    m_lines.clear();
    m_isInvalidated = false;
}

void ProcessPacketReader::onProcessDestroyed() {
    reportLeftOut(true);
    m_process = nullptr;
}

bool ProcessPacketReader::valid() {
    return m_process && !m_isInvalidated && !isOver();
}

SmartPointer<Packet> ProcessPacketReader::read() {
    return readTimeout(0, 0);
}

SmartPointer<Packet> ProcessPacketReader::readTimeout(unsigned limit, unsigned interval) {
    if (!m_process || m_isInvalidated) return nullptr;
    // Where somebody else ticks the process there may be a packet every time, and errors must not wait for the last.
    logErrors();
    if (SmartPointer<Packet> packet = takePacket()) return packet;
    const int64_t start = Clock::current().getMilliseconds();
    for (;;) {
        const bool isRunning = exchange();
        if (SmartPointer<Packet> packet = takePacket()) return packet;
        if (!isRunning && isOver()) {
            reportLeftOut(true);
            return nullptr;
        }
        unsigned wait = std::max(interval, 1u);
        if (limit != 0xFFFFFFFF) {
            const int64_t left = start + limit - Clock::current().getMilliseconds();
            if (left <= 0) return nullptr;
            wait = static_cast<unsigned>(std::min<int64_t>(wait, left));
        }
        // What is left behind a full buffer needs no waiting.
        if (isRunning) m_process->waitForBytes(wait);
    }
}

// Whether nothing more will come from the child.
bool ProcessPacketReader::isOver() const {
    return !m_process->m_child.isStarted() && m_process->isEOF();
}

// One pass; false when the child does not run any more.
bool ProcessPacketReader::exchange() {
    const bool isRunning = m_process->tick();
    logErrors();
    reportLeftOut(false);
    return isRunning;
}

// Null when there is no whole packet among the bytes that were read.
SmartPointer<Packet> ProcessPacketReader::takePacket() {
    SmartPointer<Packet> packet;
    while (takeFromRun(packet)) {
        if (packet) return packet;
    }
    std::string_view line;
    const bool isLine = m_process->isEOF() && m_lines.finish(line);
    reportDropped();
    return isLine ? takeLine(line) : nullptr;
}

// Takes what it can of the buffer's first run: a packet and the lines before it, or all lines; false when that is
// nothing. The beginning of a line whose rest can still follow it in the buffer stays there, so that the line need not
// be copied together.
bool ProcessPacketReader::takeFromRun(SmartPointer<Packet>& packet) {
    using Rest = internal::LineAssembler::Rest;
    const std::string_view run = m_process->getOutput();
    const Rest rest = m_process->canOutputGrow() ? Rest::Left : Rest::Copied;
    std::string_view left = run;
    for (std::string_view line; !packet && m_lines.next(left, line, rest);) packet = takeLine(line);
    reportDropped();
    m_process->consumeOutput(run.size() - left.size());
    return left.size() < run.size();
}

void ProcessPacketReader::reportDropped() {
    if (m_lines.takeDropped() != 0) logging::MessageStream(3, 2) << m_logPrefix << "line too long, dropped";
}

SmartPointer<Packet> ProcessPacketReader::takeLine(std::string_view line) {
    if (line.empty()) return nullptr;
    SmartPointer<Packet> packet = internal::packetOfLine(line, m_budget.isSpent());
    if (!packet) logLine(line);
    return packet;
}

// A child that prints without end must not fill the log.
bool ProcessPacketReader::mayLog() {
    reportLeftOut(false);
    return m_budget.take();
}

void ProcessPacketReader::reportLeftOut(bool isOver) {
    const unsigned count = m_budget.takeLeftOut(isOver);
    if (count != 0)
        logging::MessageStream(2, 2) << m_logPrefix << count << " lines left out, more than " << m_budget.linesPerSecond
                                     << " came in a second";
}

void ProcessPacketReader::logLine(std::string_view text) {
    if (!mayLog()) return;
    const internal::ChildLine line = internal::readChildLine(text, m_isUntaggedVerbose ? 0 : 1);
    logging::MessageStream(line.level, 2) << m_logPrefix << internal::loggedLine(line.text);
}

void ProcessPacketReader::logErrors() {
    for (String line; m_process->readErrLine(line);) {
        if (!line.empty() && mayLog()) logging::MessageStream(3, 2) << m_logPrefix << internal::loggedLine(line);
    }
}

} // namespace kiv
