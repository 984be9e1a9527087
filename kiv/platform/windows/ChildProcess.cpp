#include "kiv/platform/ChildProcess.h"

#include "kiv/platform/Waker.h"
#include "kiv/platform/windows/OwnedHandle.h"
#include "kiv/platform/windows/WidePath.h"
#include "kiv/platform/windows/WideText.h"

#include <algorithm>
#include <memory>

namespace kiv::platform {

namespace {

constexpr DWORD pipeSize = 1 << 20;

// A write to a pipe that does not wait moves all or nothing: so it goes in pieces, smaller ones when little fits.
constexpr size_t largestPiece = 64 << 10;
constexpr size_t smallestPiece = 4 << 10;

HANDLE handleOf(intptr_t value) {
    return reinterpret_cast<HANDLE>(value);
}

int32_t lastError() {
    return static_cast<int32_t>(::GetLastError());
}

constexpr unsigned looksWithoutPause = 50;

// Or the end.
bool isWorthReading(intptr_t pipe) {
    DWORD available = 0;
    return pipe != -1 && (!::PeekNamedPipe(handleOf(pipe), nullptr, 0, nullptr, &available, nullptr) || available > 0);
}

// The parent's end and the child's, of which only the second can be inherited.
struct PipePair {
    OwnedHandle parent;
    OwnedHandle child;

    // False with the error as the last one.
    bool open(bool isParentWriting) {
        OwnedHandle& read = isParentWriting ? child : parent;
        OwnedHandle& write = isParentWriting ? parent : child;
        DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
        return ::CreatePipe(read.address(), write.address(), nullptr, pipeSize) &&
               ::SetHandleInformation(child.get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT) &&
               ::SetNamedPipeHandleState(parent.get(), &mode, nullptr, nullptr);
    }
};

// The three handles that a child inherits, whatever else could be.
class HandleList {
public:
    HandleList() = default;
    HandleList(const HandleList&) = delete;
    HandleList& operator=(const HandleList&) = delete;
    ~HandleList() {
        if (m_isMade) ::DeleteProcThreadAttributeList(get());
    }

    // `handles` must outlive this.
    bool make(HANDLE (&handles)[3]) {
        SIZE_T size = 0;
        ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        m_bytes = std::make_unique<char[]>(size);
        m_isMade = ::InitializeProcThreadAttributeList(get(), 1, 0, &size);
        return m_isMade && ::UpdateProcThreadAttribute(get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles,
                                                       sizeof(handles), nullptr, nullptr);
    }
    LPPROC_THREAD_ATTRIBUTE_LIST get() { return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_bytes.get()); }

private:
    std::unique_ptr<char[]> m_bytes;
    bool m_isMade = false;
};

// Its processes end when its last handle is closed, which the system does at the end of this program. What they start
// is left alone.
HANDLE jobOfThisProgram() {
    static const HANDLE job = [] {
        OwnedHandle made(::CreateJobObjectW(nullptr, nullptr));
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
        limits.BasicLimitInformation.LimitFlags =
            JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
        const bool isLimited =
            made && ::SetInformationJobObject(made.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));
        return isLimited ? made.detach() : nullptr; // which no process is assigned to
    }();
    return job;
}

// Those are run by the command interpreter, which understands the command line in its own way and runs what stands in
// arguments.
bool isBatchFile(const std::string& path) {
    std::string end = path.substr(0, path.find_last_not_of(". ") + 1);
    end.erase(0, end.size() - std::min<size_t>(end.size(), 4));
    std::transform(end.begin(), end.end(), end.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return end == ".bat" || end == ".cmd";
}

// The process is suspended; 0, or the error that it was ended for.
int32_t letRun(const PROCESS_INFORMATION& made, bool isKilledWithParent) {
    const bool isRunning = (!isKilledWithParent || ::AssignProcessToJobObject(jobOfThisProgram(), made.hProcess)) &&
                           ::ResumeThread(made.hThread) != static_cast<DWORD>(-1);
    const int32_t error = isRunning ? 0 : lastError();
    if (error != 0) ::TerminateProcess(made.hProcess, 0);
    return error;
}

int32_t create(const ChildStart& start, HANDLE (&streams)[3], PROCESS_INFORMATION& made) {
    std::wstring commandLine, folder;
    const std::wstring path = widePath(start.path);
    if (path.empty() || !wideText(start.commandLine, commandLine)) return ERROR_INVALID_PARAMETER;
    if (start.workingDirectory && !wideText(start.workingDirectory, folder)) return ERROR_INVALID_PARAMETER;
    HandleList handles;
    if (!handles.make(streams)) return lastError();
    STARTUPINFOEXW startup{};
    startup.StartupInfo.cb = sizeof(startup);
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
    startup.StartupInfo.wShowWindow = SW_HIDE;
    startup.StartupInfo.hStdInput = streams[0];
    startup.StartupInfo.hStdOutput = streams[1];
    startup.StartupInfo.hStdError = streams[2];
    startup.lpAttributeList = handles.get();
    const DWORD flags = CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP | EXTENDED_STARTUPINFO_PRESENT;
    const bool isMade =
        ::CreateProcessW(path.c_str(), commandLine.data(), nullptr, nullptr, TRUE, flags, nullptr,
                         start.workingDirectory ? folder.c_str() : nullptr, &startup.StartupInfo, &made);
    return isMade ? 0 : lastError();
}

} // namespace

int32_t ChildProcess::start(const ChildStart& start) {
    if (!start.isValid()) return ERROR_INVALID_PARAMETER;
    if (isBatchFile(start.path)) return ERROR_BAD_EXE_FORMAT;
    PipePair input, output, error;
    if (!input.open(true) || !output.open(false) || !error.open(false)) return lastError();
    HANDLE streams[] = {input.child.get(), output.child.get(), error.child.get()};
    PROCESS_INFORMATION made{};
    if (const int32_t failure = create(start, streams, made)) return failure;
    OwnedHandle process(made.hProcess);
    const OwnedHandle thread(made.hThread);
    if (const int32_t failure = letRun(made, start.isKilledWithParent)) return failure;
    m_process = reinterpret_cast<intptr_t>(process.detach());
    m_pipes[Input] = reinterpret_cast<intptr_t>(input.parent.detach());
    m_pipes[Output] = reinterpret_cast<intptr_t>(output.parent.detach());
    m_pipes[Error] = reinterpret_cast<intptr_t>(error.parent.detach());
    return 0;
}

void ChildProcess::close(Pipe pipe) {
    if (isOpen(pipe)) ::CloseHandle(handleOf(m_pipes[pipe]));
    m_pipes[pipe] = none;
}

PipeResult ChildProcess::read(Pipe pipe, void* to, size_t size) {
    DWORD count = 0, available = 0;
    const HANDLE handle = handleOf(m_pipes[pipe]);
    bool isRead;
    do {
        isRead = ::ReadFile(handle, to, static_cast<DWORD>(std::min<size_t>(size, pipeSize)), &count, nullptr);
        // Also what a child's write of no bytes looks like: only the pipe knows whether it has ended, or holds more.
        if (isRead && count == 0) isRead = ::PeekNamedPipe(handle, nullptr, 0, nullptr, &available, nullptr);
    } while (isRead && count == 0 && available > 0);
    const DWORD error = isRead ? ERROR_SUCCESS : ::GetLastError();
    if (error == ERROR_SUCCESS || error == ERROR_NO_DATA) return {count, PipeResult::Open, 0};
    if (error == ERROR_BROKEN_PIPE) return {0, PipeResult::Closed, 0};
    return {0, PipeResult::Failed, static_cast<int32_t>(error)};
}

PipeResult ChildProcess::write(const void* from, size_t size) {
    PipeResult result;
    for (size_t piece = largestPiece; result.count < size && piece >= smallestPiece;) {
        const size_t asked = std::min(piece, size - result.count);
        DWORD count = 0;
        if (!::WriteFile(handleOf(m_pipes[Input]), static_cast<const char*>(from) + result.count,
                         static_cast<DWORD>(asked), &count, nullptr)) {
            result.error = lastError();
            const bool isClosed = result.error == ERROR_NO_DATA || result.error == ERROR_BROKEN_PIPE;
            result.status = isClosed ? PipeResult::Closed : PipeResult::Failed;
            return result;
        }
        result.count += count;
        if (count < asked) piece /= 2;
    }
    return result;
}

// These pipes can't be waited for: they are looked at again and again, at first without a pause.
void ChildProcess::waitForPipes(unsigned milliseconds, bool isWriting, const Waker* waker) {
    HANDLE events[2];
    DWORD count = 0;
    if (isStarted()) events[count++] = handleOf(m_process);
    if (waker) events[count++] = handleOf(waker->m_signal);
    const ULONGLONG start = ::GetTickCount64();
    for (unsigned looks = 0;; ++looks) {
        if (isWorthReading(m_pipes[Output]) || isWorthReading(m_pipes[Error])) return;
        if (looks < looksWithoutPause) {
            ::SwitchToThread();
        } else if (count == 0) {
            ::Sleep(1);
        } else if (::WaitForMultipleObjects(count, events, FALSE, 1) != WAIT_TIMEOUT) {
            return;
        }
        if ((isWriting && looks >= looksWithoutPause) || ::GetTickCount64() - start >= milliseconds) return;
    }
}

ExitStatus ChildProcess::getExitStatus() {
    DWORD code = 0;
    const bool isKnown = ::GetExitCodeProcess(handleOf(m_process), &code);
    const int32_t error = isKnown ? 0 : lastError();
    if (isKnown && code == STILL_ACTIVE) return {ExitStatus::Running, 0, 0};
    release();
    return {isKnown ? ExitStatus::Ended : ExitStatus::Unknown, isKnown ? static_cast<int32_t>(code) : -1, error};
}

int32_t ChildProcess::kill(bool wait) {
    const int32_t error = ::TerminateProcess(handleOf(m_process), 0) ? 0 : lastError();
    if (wait) ::WaitForSingleObject(handleOf(m_process), INFINITE);
    release();
    return error;
}

int32_t ChildProcess::interrupt() {
    const DWORD group = static_cast<DWORD>(getId());
    return ::GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, group) ? 0 : lastError();
}

int64_t ChildProcess::getId() const {
    return isStarted() ? ::GetProcessId(handleOf(m_process)) : 0;
}

void ChildProcess::collectReleased() {}

int32_t ChildProcess::getBusyError() {
    return ERROR_BUSY;
}

void ChildProcess::release() {
    ::CloseHandle(handleOf(m_process));
    m_process = none;
}

} // namespace kiv::platform
