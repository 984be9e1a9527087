#include "kiv/platform/ChildProcess.h"

#include "kiv/platform/Waker.h"
#include "kiv/platform/linux/ChildLaunch.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kiv::platform {

namespace {

constexpr int pipeSize = 1 << 20;
constexpr unsigned timeBetweenLooks = 10; // where the system tells nothing

pid_t waitFor(pid_t child, int* status, int options) {
    pid_t result;
    do result = ::waitpid(child, status, options);
    while (result < 0 && errno == EINTR);
    return result;
}

// Children that nobody asks for any more. Each stays in the system's table until it has ended and was waited for.
class Orphans {
public:
    // Never destroyed, for children may be released at the very end of the program.
    static Orphans& instance() {
        static Orphans* const orphans = new Orphans;
        return *orphans;
    }

    void add(pid_t child) {
        const std::lock_guard lock(m_mutex);
        m_children.push_back(child);
        m_count = m_children.size();
    }
    void reap() {
        if (m_count == 0) return;
        const std::lock_guard lock(m_mutex);
        std::erase_if(m_children, [](pid_t child) { return waitFor(child, nullptr, WNOHANG) != 0; });
        m_count = m_children.size();
    }

private:
    std::atomic<size_t> m_count{0};
    std::mutex m_mutex;
    std::vector<pid_t> m_children;
};

// While it lives, writing to a pipe that nobody reads is an error here and no signal to the program.
class BrokenPipeGuard {
public:
    BrokenPipeGuard() {
        ::sigemptyset(&m_signal);
        ::sigaddset(&m_signal, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
        sigset_t pending;
        m_wasPending = wasBlocked() && ::sigpending(&pending) == 0 && ::sigismember(&pending, SIGPIPE) == 1;
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;
    ~BrokenPipeGuard() {
        if (!wasBlocked()) ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }

    // After such an error. One that somebody else has caused stays.
    void dropSignal() {
        const timespec noTime{};
        while (!m_wasPending && ::sigtimedwait(&m_signal, nullptr, &noTime) < 0 && errno == EINTR) {
        }
    }

private:
    bool wasBlocked() const { return ::sigismember(&m_before, SIGPIPE) == 1; }

    sigset_t m_signal;
    sigset_t m_before;
    bool m_wasPending;
};

// The two ends of a pipe, both closed in programs that are started.
struct PipePair {
    int read = -1;
    int write = -1;

    PipePair() = default;
    PipePair(const PipePair&) = delete;
    PipePair& operator=(const PipePair&) = delete;
    ~PipePair() {
        close(read);
        close(write);
    }

    // False with the error in errno.
    bool open() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) return false;
        read = ends[0];
        write = ends[1];
        // As large as the user may have it: the system bounds the sum of all his pipes.
        ::fcntl(write, F_SETPIPE_SZ, pipeSize);
        return moveUp(read) && moveUp(write);
    }
    static void close(int& end) {
        if (end >= 0) ::close(end);
        end = -1;
    }

private:
    // Out of the way of the child's standard streams, which a program without its own may get as numbers here.
    static bool moveUp(int& end) {
        if (end > 2) return true;
        const int moved = ::fcntl(end, F_DUPFD_CLOEXEC, 3);
        if (moved < 0) return false;
        ::close(end);
        end = moved;
        return true;
    }
};

// Of this end only: the child's is another one, on which it may wait.
intptr_t takeUnblocked(int& end) {
    ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
    const int taken = end;
    end = -1;
    return taken;
}

} // namespace

int32_t ChildProcess::start(const ChildStart& start) {
    collectReleased();
    if (!start.isValid()) return EINVAL;
    PipePair input, output, error;
    if (!input.open() || !output.open() || !error.open()) return errno;
    const LaunchPlan plan(start, {input.read, output.write, error.write});
    pid_t child = -1;
    const int failure = start.isKilledWithParent ? launchBoundChild(plan, child) : launchChild(plan, child);
    if (failure != 0) return failure;
    m_process = child;
    m_pipes[Input] = takeUnblocked(input.write);
    m_pipes[Output] = takeUnblocked(output.read);
    m_pipes[Error] = takeUnblocked(error.read);
    return 0;
}

void ChildProcess::close(Pipe pipe) {
    if (isOpen(pipe)) ::close(static_cast<int>(m_pipes[pipe]));
    m_pipes[pipe] = none;
}

PipeResult ChildProcess::read(Pipe pipe, void* to, size_t size) {
    ssize_t count;
    do count = ::read(static_cast<int>(m_pipes[pipe]), to, size);
    while (count < 0 && errno == EINTR);
    if (count > 0) return {static_cast<size_t>(count), PipeResult::Open, 0};
    if (count == 0) return {0, PipeResult::Closed, 0};
    return errno == EAGAIN ? PipeResult{} : PipeResult{0, PipeResult::Failed, errno};
}

PipeResult ChildProcess::write(const void* from, size_t size) {
    BrokenPipeGuard guard;
    ssize_t count;
    do count = ::write(static_cast<int>(m_pipes[Input]), from, size);
    while (count < 0 && errno == EINTR);
    if (count >= 0) return {static_cast<size_t>(count), PipeResult::Open, 0};
    if (errno == EAGAIN) return {};
    const int error = errno;
    if (error == EPIPE) guard.dropSignal();
    return {0, error == EPIPE ? PipeResult::Closed : PipeResult::Failed, error};
}

void ChildProcess::waitForPipes(unsigned milliseconds, bool isWriting, const Waker* waker) {
    // The end of the child shows at its pipes, unless it has closed them, or what it has started holds them open.
    const bool isLong = isStarted() && milliseconds > timeBetweenLooks;
    int process = isLong ? static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(m_process), 0)) : -1;
    if (isLong && process < 0) milliseconds = timeBetweenLooks;
    // Those of closed pipes are negative and passed over.
    pollfd ready[] = {{static_cast<int>(m_pipes[Output]), POLLIN, 0},
                      {static_cast<int>(m_pipes[Error]), POLLIN, 0},
                      {static_cast<int>(isWriting ? m_pipes[Input] : none), POLLOUT, 0},
                      {process, POLLIN, 0},
                      {static_cast<int>(waker ? waker->m_signal : none), POLLIN, 0}};
    ::poll(ready, 5, static_cast<int>(std::min(milliseconds, 0x7FFFFFFFu)));
    PipePair::close(process);
}

ExitStatus ChildProcess::getExitStatus() {
    int status = 0;
    const pid_t result = waitFor(static_cast<pid_t>(m_process), &status, WNOHANG);
    if (result == 0) return {ExitStatus::Running, 0, 0};
    m_process = none;
    // Somebody else has waited for all children, or the program ignores their ends.
    if (result < 0) return {ExitStatus::Unknown, -1, errno};
    return {ExitStatus::Ended, WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), 0};
}

int32_t ChildProcess::kill(bool wait) {
    const pid_t child = static_cast<pid_t>(m_process);
    siginfo_t info;
    // As long as it was not waited for, its number is its own.
    int error = ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ? errno : 0;
    if (error == 0 && ::kill(child, SIGKILL) != 0) error = errno;
    if (error == 0 && wait) {
        waitFor(child, nullptr, 0);
        m_process = none;
    } else {
        release();
    }
    collectReleased();
    return error;
}

int32_t ChildProcess::interrupt() {
    return ::kill(-static_cast<pid_t>(m_process), SIGINT) == 0 ? 0 : errno;
}

int64_t ChildProcess::getId() const {
    return isStarted() ? m_process : 0;
}

void ChildProcess::collectReleased() {
    Orphans::instance().reap();
}

int32_t ChildProcess::getBusyError() {
    return EBUSY;
}

void ChildProcess::release() {
    const pid_t child = static_cast<pid_t>(m_process);
    if (waitFor(child, nullptr, WNOHANG) == 0) Orphans::instance().add(child);
    m_process = none;
}

} // namespace kiv::platform
