#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kiv::platform {

class Waker;

// What ends every call on a pipe. `error` is the system's number, 0 when there was none.
struct PipeResult {
    enum Status {
        Open,   // `count` bytes were moved, fewer than asked for when there were, resp. fitted, no more
        Closed, // the other side has closed the pipe
        Failed,
    };
    size_t count = 0;
    Status status = Open;
    int32_t error = 0;
};

struct ExitStatus {
    enum State { Running, Ended, Unknown };
    State state = Unknown;
    int32_t code = -1; // on Linux 128 + signal for a child that a signal has ended
    int32_t error = 0;
};

// How a child is started. Texts are UTF-8.
struct KIV_API ChildStart {
    std::string path;
    std::vector<std::string> arguments;     // the zeroth included
    std::string commandLine;                // the same in one text, as Windows takes it
    const char* workingDirectory = nullptr; // null: the parent's
    bool isKilledWithParent = false;        // however the parent ends

    // False without a path and for texts with a zero byte inside.
    bool isValid() const;
};

// A child process and the parent's ends of the pipes to its standard streams; no call waits for the child unless it
// says so. The child is the leader of a new process group and inherits nothing but the pipes; signals have their
// default effect in it, and it works on blocking pipes. Ownership: the destructor closes what is open, the child lives
// on. Threads: one at a time; start() of several needs a lock around it on systems where handles are inherited.
class KIV_API ChildProcess {
public:
    enum Pipe { Input, Output, Error };

    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    // 0, or the system's error; then there is no child and no pipe. Requires: no child, no open pipe.
    int32_t start(const ChildStart& start);

    bool isOpen(Pipe pipe) const { return m_pipes[pipe] != none; }
    void close(Pipe pipe);
    PipeResult read(Pipe pipe, void* to, size_t size);
    // To the child's standard input.
    PipeResult write(const void* from, size_t size);

    // Waits until a pipe has something to read, or has room while `isWriting`, or the system shows the child's end; at
    // most so long, which may be sooner. A waker ends it as well.
    void wait(unsigned milliseconds, bool isWriting, Waker* waker = nullptr);

    // Whether there is a child that neither getExitStatus() nor kill() has released.
    bool isStarted() const { return m_process != none; }
    // Asks once; a child that does not run any more is released. Requires: isStarted().
    ExitStatus getExitStatus();
    // Ends the child and releases it, on request after it has gone. 0, or the system's error. Requires: isStarted().
    int32_t kill(bool wait);
    // Ctrl-Break, resp. SIGINT, to the child's process group. 0, or the system's error. Requires: isStarted().
    int32_t interrupt();
    // 0 without a child.
    int64_t getId() const;

    // Children that were released while they ran leave something behind at their end, on some systems; this removes it.
    // start(), kill() and the destructor do so, too. Any thread.
    static void collectReleased();
    // What start() of a second child fails with.
    static int32_t getBusyError();

private:
    static constexpr intptr_t none = -1;

    void waitForPipes(unsigned milliseconds, bool isWriting, const Waker* waker);

    void release();

    intptr_t m_process = none; // an identifier, resp. a handle
    intptr_t m_pipes[3] = {none, none, none};
};

// The elements joined by blanks so that a program on Windows finds them again: one that is empty or holds a blank, a
// tab or a double quote is enclosed in double quotes, but not one that begins with a double quote.
KIV_API std::string joinArguments(const std::vector<std::string>& arguments);

} // namespace kiv::platform
