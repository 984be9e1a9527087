#include "tests/support/ProgramState.h"

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <csignal>
#include <filesystem>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace support {

#if defined(_WIN32)

size_t countOpenHandles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

bool hasChildren() {
    return false;
}
bool takeEndedChild(int64_t) {
    return false;
}

bool isBrokenPipeIgnored() {
    return false;
}
void setBrokenPipeIgnored(bool) {}

bool isWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

void useBinaryStreams() {
    for (int stream = 0; stream < 3; ++stream) ::_setmode(stream, _O_BINARY);
}

void closeStandardInput() {
    ::_close(0);
}

#else

// One is open for the listing itself.
size_t countOpenHandles() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all))) - 1;
}

bool hasChildren() {
    siginfo_t ignored;
    return ::waitid(P_ALL, 0, &ignored, WEXITED | WNOHANG | WNOWAIT) == 0;
}
bool takeEndedChild(int64_t id) {
    return ::waitpid(static_cast<pid_t>(id), nullptr, WNOHANG) > 0;
}

bool isBrokenPipeIgnored() {
    struct sigaction action {};
    ::sigaction(SIGPIPE, nullptr, &action);
    return action.sa_handler == SIG_IGN;
}
void setBrokenPipeIgnored(bool isIgnored) {
    std::signal(SIGPIPE, isIgnored ? SIG_IGN : SIG_DFL);
}

bool isWine() {
    return false;
}

void useBinaryStreams() {}

void closeStandardInput() {
    ::close(0);
}

#endif

} // namespace support
