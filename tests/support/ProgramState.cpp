#include "tests/support/ProgramState.h"

#if defined(_WIN32)
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <aclapi.h>
#include <psapi.h>
#include <tlhelp32.h>
#else
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace support {

#if defined(_WIN32)

const size_t handlesOfLocks = 4;

// Not by GetProcessHandleCount, which says 0 under Wine. New handles get the lowest free numbers.
size_t countOpenHandles() {
    size_t count = 0;
    DWORD flags;
    for (uintptr_t number = 4; number < 0x4000; number += 4)
        count += ::GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags) != 0;
    return count;
}

bool hasChildren() {
    return false;
}
bool takeEndedChild(int64_t) {
    return false;
}

size_t countThreads() {
    size_t count = 0;
    const HANDLE all = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 thread{};
    thread.dwSize = sizeof thread;
    for (BOOL isOne = ::Thread32First(all, &thread); isOne; isOne = ::Thread32Next(all, &thread))
        count += thread.th32OwnerProcessID == ::GetCurrentProcessId();
    ::CloseHandle(all);
    return count;
}

uint64_t countResidentBytes() {
    PROCESS_MEMORY_COUNTERS counters{};
    ::K32GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
    return counters.WorkingSetSize;
}

bool raiseInterrupt() {
    return false;
}

// By taking away the list of who may what.
bool letEverybodyWrite(const std::filesystem::path& path) {
    std::wstring name = path.wstring();
    return ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                   DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                   nullptr, nullptr) == ERROR_SUCCESS;
}

void setEnvironment(const char* name, const char* value) {
    ::_putenv_s(name, value ? value : "");
}

void die() {
    ::TerminateProcess(::GetCurrentProcess(), 3);
    std::abort();
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

int runInBackground(const std::string& program, const std::string& argument) {
    return std::system(("start \"\" /b \"" + program + "\" " + argument).c_str());
}

#else

const size_t handlesOfLocks = 0;

namespace {

size_t countEntries(const char* folder) {
    const std::filesystem::directory_iterator all(folder);
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

} // namespace

// One is open for the listing itself.
size_t countOpenHandles() {
    return countEntries("/proc/self/fd") - 1;
}

size_t countThreads() {
    return countEntries("/proc/self/task");
}

uint64_t countResidentBytes() {
    uint64_t all = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
}

bool raiseInterrupt() {
    return std::raise(SIGINT) == 0;
}

bool letEverybodyWrite(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::permissions(path, std::filesystem::perms::others_write, std::filesystem::perm_options::add, error);
    return !error;
}

void setEnvironment(const char* name, const char* value) {
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
}

bool hasChildren() {
    siginfo_t ignored;
    return ::waitid(P_ALL, 0, &ignored, WEXITED | WNOHANG | WNOWAIT) == 0;
}
bool takeEndedChild(int64_t id) {
    return ::waitpid(static_cast<pid_t>(id), nullptr, WNOHANG) > 0;
}

void die() {
    std::raise(SIGKILL);
    std::abort();
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

// A shell gives no input to what works in its background, unless told to.
int runInBackground(const std::string& program, const std::string& argument) {
    return std::system(("{ '" + program + "' " + argument + " <&3 & } 3<&0").c_str());
}

#endif

} // namespace support
