#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/platform/ChildProcess.h"
#include "kiv/process/ByteRing.h"

#include <string>

namespace kiv {

class ProcessPacketReader;
class ProcessPacketWriter;

namespace internal {

// What works on the pipes of a Process and may outlive it.
class KIV_API ProcessEnd {
public:
    // A new child is about to be started: everything of the last one is forgotten.
    virtual void onSpawn() = 0;
    // The process object goes; it must not be touched any more.
    virtual void onProcessDestroyed() = 0;

protected:
    virtual ~ProcessEnd();
};

} // namespace internal

// A child program and what goes through its standard streams. Nothing here waits for the child, except terminate(true):
// bytes move between pipes and buffers of this object when tick() is called.
// Output that nobody reads stops the child once pipe and buffer are full; of its standard error the oldest lines are
// dropped instead. What is written waits in a buffer of up to 64 MiB.
// Ownership: destroying it closes the pipes and leaves the child running. Threads: one at a time.
// Failures are logged where it says so, kept as the last error, and never thrown.
class KIV_API Process : public Object {
    KIV_OBJECT(Process, Object)
public:
    // What exit_status() says of a running child.
    static const int32_t stillActive = 259;

    Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() override;

    // Without further arguments.
    bool spawn(String path);
    // Starts the program `path`, which is not searched for. `arguments` begins with the name by which the program is
    // called, by custom `path` again; an empty list means just that. `workingDirectory` null: the parent's. With
    // `killWithParent` the system ends the child when this program ends, however it does.
    // False, with an error in the log, when there is a running child or the system refuses. Forgets everything of the
    // child before.
    bool spawn(String path, const List<String>& arguments, const char* workingDirectory, bool killWithParent);

    // Moves what can be moved at once; true while the child runs. Once it has ended, what it has written can still be
    // read, and further calls fetch what did not fit the buffers.
    bool tick();
    // Closes the pipes and ends the child at once, on request waiting for its end; false without a running child.
    bool terminate(bool wait);
    // Asks the child and the processes it has started to stop: Ctrl-Break on Windows, where both must share a console,
    // an interrupt elsewhere. False without a running child.
    bool sendBreak();

    // One line from standard output, resp. standard error, without its LF or CR LF; false when there is none yet. What
    // fills the whole buffer counts as a line, and so does the rest behind the last LF when no more comes.
    bool readLine(String& line);
    bool readErrLine(String& line);
    // Appends what has come from standard output, resp. standard error, as it is; false when there was nothing.
    bool readBytes(std::string& bytes);
    bool readErrBytes(std::string& bytes);
    // Adds an LF. False when the child's standard input is closed or the buffer is full.
    bool writeLine(const String& line);

    // 259 while the child runs, then its exit code (on Linux 128 + signal when a signal has ended it); -1 before the
    // first spawn, after terminate() and when it can't be told. A child that exits with 259 seems to run for ever.
    int32_t exit_status() const { return m_exitStatus; }
    // Whether no more will come from standard output, resp. standard error, and everything was read.
    bool isEOF() const;
    bool isErrEOF() const;
    // Whether anything was read from the child since the last call.
    bool popReadAction();
    // 0 without a running child.
    int64_t getProcessId() const { return m_child.getId(); }

    // The child's packets, resp. where packets for it go. Created at the first call and kept; whoever holds one longer
    // than the process finds it invalid. Defined in ProcessPacketReader.cpp and ProcessPacketWriter.cpp.
    ProcessPacketReader* getPacketReader();
    ProcessPacketWriter* getPacketWriter();

    static int64_t getCurrentProcessId();
    // Whether a program of this name runs: the file's name without its folder, on Windows in any case and with ".exe".
    // This program counts, too.
    static bool processExists(const char* name);
    // Processes that have ended and are only waited for do not exist.
    static bool processExists(int64_t processId);
    // Ends all processes of this name but this one and the excepted one. False when one of them could not be ended.
    static bool terminateProcessesByName(const char* name, int64_t exceptProcessId);
    // Waits until no other process has one of the names; false when `timeout` milliseconds have passed before. A
    // negative timeout is none.
    static bool waitForProcessesToTerminate(const Set<String>& names, int timeout);

protected:
    // The parts of tick(): all of the three, or one. They do nothing on closed pipes.
    void processIO();
    void read_stdout();
    void read_stderr();
    void write_stdin();
    // What was not written yet is dropped.
    void close_stdin();
    void close_stdout();
    void close_stderr();
    // Waits until tick() has something to move or to tell, at most so many milliseconds.
    void waitForBytes(unsigned milliseconds, platform::Waker* waker = nullptr) {
        m_child.wait(milliseconds, !m_input.empty(), waker);
    }

    // The system's number of the last failure, 0 before the first one of this child.
    int32_t error() const { return m_error; }
    String error_text() const;
    void set_error(int32_t code) { m_error = code; }

private:
    friend class AsyncSupervisor;
    friend class ProcessPacketReader;
    friend class ProcessPacketWriter;
    using Pipe = platform::ChildProcess::Pipe;

    // Bytes read and where the search for line ends goes on.
    struct Incoming {
        explicit Incoming(size_t capacity) : ring(capacity) {}

        internal::ByteRing ring;
        size_t scanned = 0; // so many bytes at the front have no LF
    };

    // An end of the packet channel with the object that it is part of, which is kept.
    struct Attached {
        SmartPointer<Object> object;
        internal::ProcessEnd* end;
    };

    template <class End>
    End* attach(End* end) {
        m_attached.push_back({SmartPointer<Object>(end), end});
        return end;
    }

    // Room for bytes to the child in one run, to be filled and given to commitInput(). Null when standard input is
    // closed, or when the buffer is full, which is logged once until there is room again.
    char* reserveInput(size_t size);
    // Requires: at most as much as was reserved.
    void commitInput(size_t size) { m_input.commit(size); }
    bool isInputOpen() const { return m_child.isOpen(Pipe::Input); }
    // The first run of what tick() has read from standard output and nobody has taken yet. Fewer than all bytes when
    // the buffer's end comes between: the rest is the first run once this one is consumed.
    std::string_view getOutput() const { return m_output.ring.readable(); }
    void consumeOutput(size_t size);
    // Whether the bytes to come will continue the run of getOutput().
    bool canOutputGrow() const;

    void reset();
    bool failSpawn(const String& path, int32_t code);
    bool updateStatus(); // true while the child runs
    void readPipe(Pipe pipe, internal::ByteRing& ring);
    void dropOldErrors();
    bool isEnded(Pipe pipe, const Incoming& from) const { return !m_child.isOpen(pipe) && from.ring.empty(); }
    bool takeLine(Pipe pipe, Incoming& from, String& line);
    static bool takeBytes(Incoming& from, std::string& bytes);

    platform::ChildProcess m_child;
    internal::ByteRing m_input;
    Incoming m_output;
    Incoming m_errors;
    String m_path; // of the last child
    int32_t m_exitStatus = -1;
    int32_t m_error = 0;
    bool m_hasRead = false;
    bool m_hasDroppedErrors = false;
    bool m_isInputFull = false;

    Vector<Attached> m_attached;
    ProcessPacketReader* m_reader = nullptr;
    ProcessPacketWriter* m_writer = nullptr;
};

} // namespace kiv
