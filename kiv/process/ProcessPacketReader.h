#pragma once

#include "kiv/data/LineAssembler.h"
#include "kiv/data/PacketReader.h"
#include "kiv/process/LineBudget.h"
#include "kiv/process/Process.h"

#include <string>
#include <string_view>

namespace kiv {

// The packets among the lines that a child prints to its standard output; see Process::getPacketReader(). Its other
// lines go to the log as foreign text behind a prefix, up to 500 in a second, and of what is more the number. Their tag
// names the level: [VERBOSE], [WARN], [WARNING], [ERROR] or [ASSERT], which is an error here; it and the time before it
// are removed. Lines of the child's standard error are errors. A line too long for a packet is dropped, with an error,
// and of others above 64 KiB the beginning is shown. Nobody else may read the child's output.
// Ownership: by the Process; whoever keeps it longer gets nothing any more. Threads: that of the Process.
class KIV_API ProcessPacketReader : public PacketReader, private internal::ProcessEnd {
    KIV_OBJECT(ProcessPacketReader, PacketReader)
public:
    // False once all output of the child that has ended was read, until another one is spawned.
    bool valid() override;
    // The next packet that is there: moves bytes once when none is, and never waits.
    SmartPointer<Packet> read() override;
    // Waits for one at most `limit` milliseconds (0xFFFFFFFF: without limit), looking whenever there is output and at
    // least every `interval`. Null before that when the child has ended and everything was read.
    SmartPointer<Packet> readTimeout(unsigned limit, unsigned interval) override;

    // "[SUBPROCESS] " unless set; null is the empty one.
    void setLogPrefix(const char* prefix) { m_logPrefix = prefix ? prefix : ""; }
    // Lines without a tag are logged as verbose instead of information.
    void setRedirectUntaggedToVerbose(bool redirect) { m_isUntaggedVerbose = redirect; }
    // Nothing is read any more until the process is spawned again.
    void invalidate() { m_isInvalidated = true; }

private:
    friend class Process;

    explicit ProcessPacketReader(Process* process);
    void onSpawn() override;
    void onProcessDestroyed() override;

    SmartPointer<Packet> takePacket();
    bool takeFromRun(SmartPointer<Packet>& packet);
    SmartPointer<Packet> takeLine(std::string_view line);
    void reportDropped();
    bool exchange();
    bool isOver() const;
    void logLine(std::string_view line);
    void logErrors();
    bool mayLog();
    void reportLeftOut(bool isOver);

    Process* m_process; // null once it was destroyed
    internal::LineAssembler m_lines;
    internal::LineBudget m_budget;
    std::string m_logPrefix = "[SUBPROCESS] ";
    bool m_isUntaggedVerbose = false;
    bool m_isInvalidated = false;
};

} // namespace kiv
