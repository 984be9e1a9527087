#include "kiv/platform/ProcessList.h"

#include "kiv/platform/windows/OwnedHandle.h"
#include "kiv/platform/windows/WideText.h"

#include <tlhelp32.h>

namespace kiv::platform {

namespace {

OwnedHandle openProcess(int64_t id, DWORD access) {
    return OwnedHandle(::OpenProcess(access, FALSE, static_cast<DWORD>(id)));
}

std::string programName(HANDLE process) {
    std::wstring path(0x8000, L'\0');
    DWORD size = static_cast<DWORD>(path.size());
    if (!::QueryFullProcessImageNameW(process, 0, path.data(), &size)) return {};
    path.resize(size);
    return narrowText(path.substr(path.rfind(L'\\') + 1));
}

} // namespace

std::vector<RunningProcess> listProcesses() {
    std::vector<RunningProcess> processes;
    const OwnedHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = snapshot && ::Process32FirstW(snapshot.get(), &entry); more;
         more = ::Process32NextW(snapshot.get(), &entry))
        if (entry.th32ProcessID != 0 && entry.szExeFile[0] != 0)
            processes.push_back({entry.th32ProcessID, narrowText(entry.szExeFile)});
    return processes;
}

bool isSameProgram(const std::string& name, const std::string& other) {
    std::wstring a, b;
    return wideText(name, a) && wideText(other, b) &&
           ::CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(), static_cast<int>(b.size()), TRUE) ==
               CSTR_EQUAL;
}

int64_t getCurrentProcessId() {
    return ::GetCurrentProcessId();
}

bool isProcessRunning(int64_t id) {
    if (id <= 0 || id > MAXDWORD) return false;
    const OwnedHandle process = openProcess(id, SYNCHRONIZE);
    if (!process) return ::GetLastError() == ERROR_ACCESS_DENIED;
    return ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

// The open handle keeps the number from being used again.
bool killProcess(const RunningProcess& process) {
    const OwnedHandle handle =
        openProcess(process.id, SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION);
    if (!handle) return ::GetLastError() == ERROR_INVALID_PARAMETER;
    if (!isSameProgram(programName(handle.get()), process.name)) return true;
    return ::TerminateProcess(handle.get(), 0) || ::WaitForSingleObject(handle.get(), 0) == WAIT_OBJECT_0;
}

} // namespace kiv::platform
