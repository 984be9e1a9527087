// Children that end with their parent. The system's signal for that follows the thread that has started the child, not
// the program: so they all are started by one thread that ends last.

#include "kiv/platform/linux/ChildLaunch.h"

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <mutex>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace kiv::platform {

namespace {

// While it lives, signals do not reach this thread and those it starts.
class NoSignals {
public:
    NoSignals() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;
    ~NoSignals() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before;
};

bool enterChild(const LaunchPlan& plan, pid_t parent, int failures) {
    // Handlers are functions of the parent, whose memory this still is; ignored signals would stay ignored.
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) ::sigaction(number, &byDefault, nullptr);
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::setpgid(0, 0) != 0) return false;
    if (::getppid() != parent) ::_exit(127); // it has ended before the signal was asked for
    for (int i = 0; i < 3; ++i)
        if (::dup2(plan.streams[i], i) < 0) return false;
    // What is open above, but for the pipe that failures go to. Old systems can't, and keep what does not close itself.
    ::close_range(3, static_cast<unsigned>(failures) - 1, 0);
    ::close_range(static_cast<unsigned>(failures) + 1, ~0u, 0);
    if (plan.workingDirectory && ::chdir(plan.workingDirectory) != 0) return false;
    sigset_t none;
    ::sigemptyset(&none);
    return ::sigprocmask(SIG_SETMASK, &none, nullptr) == 0;
}

[[noreturn]] void runChild(const LaunchPlan& plan, pid_t parent, int failures) {
    if (enterChild(plan, parent, failures)) ::execve(plan.path.c_str(), plan.arguments.data(), environ);
    const int error = errno;
    [[maybe_unused]] const ssize_t ignored = ::write(failures, &error, sizeof(error));
    ::_exit(127);
}

// Not inlined: behind it in the parent's frame nothing may change while the child is there.
__attribute__((noinline)) pid_t startChild(const LaunchPlan& plan, pid_t parent, int failures) {
    const pid_t child = ::vfork();
    if (child == 0) runChild(plan, parent, failures);
    return child;
}

// On a thread that no signal reaches.
int launch(const LaunchPlan& plan, pid_t& child) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
    // Standard streams may be closed here, and would be overwritten there.
    const int failures = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 3);
    int error = failures < 0 ? errno : 0;
    ::close(ends[1]);
    if (error == 0) {
        child = startChild(plan, ::getpid(), failures);
        if (child < 0) error = errno;
        ::close(failures);
    }
    // Closed without a word when the program has started.
    const bool hasFailed = error == 0 && ::read(ends[0], &error, sizeof(error)) == sizeof(error);
    ::close(ends[0]);
    if (hasFailed) ::waitpid(child, nullptr, 0);
    return error;
}

class Launcher {
public:
    Launcher() {
        const NoSignals noSignals;
        m_thread = std::thread([this] { run(); });
    }
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;
    ~Launcher() {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnding = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

    int launchHere(const LaunchPlan& plan, pid_t& child) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return !m_job; });
        Job job{plan, child};
        m_job = &job;
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return job.isDone; });
        return job.error;
    }

private:
    struct Job {
        const LaunchPlan& plan;
        pid_t& child;
        int error = 0;
        bool isDone = false;
    };

    void run() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [&] { return m_job || m_isEnding; });
            if (m_isEnding) return;
            m_job->error = launch(m_job->plan, m_job->child);
            m_job->isDone = true;
            m_job = nullptr;
            m_changed.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    Job* m_job = nullptr;
    bool m_isEnding = false;
    std::thread m_thread;
};

} // namespace

int launchBoundChild(const LaunchPlan& plan, pid_t& child) {
    try {
        static Launcher launcher;
        return launcher.launchHere(plan, child);
    } catch (const std::system_error& failure) { // the system has no thread to give
        return failure.code().value();
    }
}

} // namespace kiv::platform
