#include "kiv/platform/ProcessList.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace kiv::platform {

namespace {

constexpr std::string_view deletedMark = " (deleted)";

std::string withoutFolder(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// Empty for processes that have ended, threads of the kernel, and what can't be seen. Not what the kernel calls the
// name of a process: that has 15 bytes at most.
std::string programName(int64_t id) {
    const std::string folder = "/proc/" + std::to_string(id);
    std::string path(4096, '\0');
    const ssize_t size = ::readlink((folder + "/exe").c_str(), path.data(), path.size());
    if (size > 0) {
        path.resize(static_cast<size_t>(size));
        if (path.ends_with(deletedMark)) path.resize(path.size() - deletedMark.size());
        return withoutFolder(path);
    }
    // Another user's: what it was called by can still be read.
    std::ifstream arguments(folder + "/cmdline", std::ios::binary);
    std::string name;
    std::getline(arguments, name, '\0');
    return withoutFolder(name);
}

// The letter behind the name, which may contain anything but ends with the last parenthesis.
bool isZombie(int64_t id) {
    std::ifstream file("/proc/" + std::to_string(id) + "/stat", std::ios::binary);
    std::string text;
    std::getline(file, text, '\0');
    const size_t end = text.rfind(") ");
    return end != text.npos && end + 2 < text.size() && (text[end + 2] == 'Z' || text[end + 2] == 'X');
}

} // namespace

std::vector<RunningProcess> listProcesses() {
    std::vector<RunningProcess> processes;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc"), ::closedir);
    while (const dirent* const entry = folder ? ::readdir(folder.get()) : nullptr) {
        char* end = nullptr;
        const int64_t id = std::strtoll(entry->d_name, &end, 10);
        if (id <= 0 || *end) continue;
        std::string name = programName(id);
        if (!name.empty()) processes.push_back({id, std::move(name)});
    }
    return processes;
}

bool isSameProgram(const std::string& name, const std::string& other) {
    return name == other;
}

int64_t getCurrentProcessId() {
    return ::getpid();
}

bool isProcessRunning(int64_t id) {
    const pid_t process = static_cast<pid_t>(id);
    if (id <= 0 || process != id) return false;
    return (::kill(process, 0) == 0 || errno == EPERM) && !isZombie(id);
}

bool killProcess(const RunningProcess& process) {
    // The number may belong to another process meanwhile, the descriptor will not.
    const int descriptor = static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(process.id), 0));
    if (descriptor < 0) return errno == ESRCH;
    const bool isGone = programName(process.id) != process.name ||
                        ::syscall(SYS_pidfd_send_signal, descriptor, SIGKILL, nullptr, 0) == 0 || errno == ESRCH;
    ::close(descriptor);
    return isGone;
}

} // namespace kiv::platform
