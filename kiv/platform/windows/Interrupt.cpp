#include "kiv/platform/Interrupt.h"

#include <windows.h>

namespace kiv::platform {
namespace {

std::atomic<bool> g_flag{false};
bool g_isCatching = false;

// On a thread of the system's. What is not handled here goes on to the handler before, at last to that which ends the
// process.
BOOL WINAPI onControl(DWORD type) {
    return (type == CTRL_C_EVENT || type == CTRL_BREAK_EVENT) && !g_flag.exchange(true);
}

} // namespace

std::atomic<bool>& interruptFlag() {
    return g_flag;
}

void catchInterrupts() {
    if (!g_isCatching) g_isCatching = ::SetConsoleCtrlHandler(onControl, TRUE) != 0;
}

void releaseInterrupts() {
    if (g_isCatching) ::SetConsoleCtrlHandler(onControl, FALSE);
    g_isCatching = false;
}

} // namespace kiv::platform
