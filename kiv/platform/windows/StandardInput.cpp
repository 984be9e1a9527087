#include "kiv/platform/StandardInput.h"

#include "kiv/platform/StandardStreams.h"

#include <algorithm>

#include <windows.h>

namespace kiv::internal {
namespace {

// A pipe tells nobody that there is something in it.
constexpr DWORD longestTimeBetweenLooks = 8;

bool isSet(HANDLE event, DWORD milliseconds) {
    return ::WaitForSingleObject(event, milliseconds) == WAIT_OBJECT_0;
}

bool waitForPipe(HANDLE pipe, HANDLE event) {
    for (DWORD pause = 0;; pause = std::min(pause + 1, longestTimeBetweenLooks)) {
        DWORD available = 0;
        // One that is broken is at its end.
        if (!::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) || available > 0) return !isSet(event, 0);
        if (isSet(event, pause)) return false;
    }
}

// Its handle tells of everything that happens to the window: reading would wait for keys then.
bool waitForConsole(HANDLE console, HANDLE event) {
    const HANDLE both[] = {event, console};
    for (;;) {
        if (::WaitForMultipleObjects(2, both, FALSE, INFINITE) == WAIT_OBJECT_0) return false;
        INPUT_RECORD record;
        DWORD count = 0;
        if (!::PeekConsoleInputW(console, &record, 1, &count)) return true;
        if (count > 0 && record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown) return true;
        if (count > 0) ::ReadConsoleInputW(console, &record, 1, &count);
    }
}

} // namespace

size_t readFromStandardInput(char* to, size_t size) {
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    const auto step = static_cast<DWORD>(std::min<size_t>(size, 0x40000000));
    DWORD count = 0;
    // A write of nothing into a pipe wakes its reader with nothing: that is not the end, unless the pipe is broken,
    // which Wine tells of its host's pipes only to who peeks.
    do {
        if (!::ReadFile(input, to, step, &count, nullptr)) return 0;
    } while (count == 0 && ::GetFileType(input) == FILE_TYPE_PIPE &&
             ::PeekNamedPipe(input, nullptr, 0, nullptr, nullptr, nullptr));
    return count;
}

bool InputWait::waitForSystem() {
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    const HANDLE event = reinterpret_cast<HANDLE>(m_waker.m_signal);
    DWORD mode;
    if (::GetFileType(input) == FILE_TYPE_PIPE) return waitForPipe(input, event);
    if (::GetConsoleMode(input, &mode)) return waitForConsole(input, event);
    return !isSet(event, 0);
}

} // namespace kiv::internal
