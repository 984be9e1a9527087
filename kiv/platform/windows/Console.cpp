#include "kiv/platform/Console.h"

#include "kiv/platform/StandardStreams.h"
#include <cstdio>
#include <cstdlib>

#include <windows.h>

namespace kiv::internal {
namespace {

struct OutputLock {
    OutputLock() { _lock_file(stdout); }
    OutputLock(const OutputLock&) = delete;
    OutputLock& operator=(const OutputLock&) = delete;
    ~OutputLock() { _unlock_file(stdout); }
};

HANDLE handleOf(StandardStream stream) {
    switch (stream) {
    case StandardStream::Input:
        return GetStdHandle(STD_INPUT_HANDLE);
    case StandardStream::Output:
        return GetStdHandle(STD_OUTPUT_HANDLE);
    case StandardStream::Error:
        return GetStdHandle(STD_ERROR_HANDLE);
    }
    return nullptr;
}

UINT g_codePageBefore;

// The console outlives this program and may belong to others: it gets its code page back at the end.
bool switchConsoleToUtf8() {
    if (!isTerminal(StandardStream::Output) && !isTerminal(StandardStream::Error)) return false;
    g_codePageBefore = GetConsoleOutputCP();
    if (g_codePageBefore == CP_UTF8 || !SetConsoleOutputCP(CP_UTF8)) return false;
    std::atexit([] { SetConsoleOutputCP(g_codePageBefore); });
    return true;
}

void useUtf8() {
    [[maybe_unused]] static const bool isSwitched = switchConsoleToUtf8();
}

} // namespace

bool writeToStandardOutput(std::string_view text) {
    const OutputLock lock;
    useUtf8();
    if (std::fflush(stdout) != 0) return false;
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

bool writeStandardError(std::string_view text) {
    useUtf8();
    return std::fwrite(text.data(), 1, text.size(), stderr) == text.size() && std::fflush(stderr) == 0;
}

bool isTerminal(StandardStream stream) {
    DWORD mode = 0;
    return GetConsoleMode(handleOf(stream), &mode) != 0;
}

unsigned getTerminalWidth(StandardStream stream) {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(handleOf(stream), &info)) return 0;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

TerminalColors getTerminalColors(StandardStream stream) {
    const char* unwanted = std::getenv("NO_COLOR");
    DWORD mode = 0;
    if ((unwanted && *unwanted) || !GetConsoleMode(handleOf(stream), &mode)) return TerminalColors::None;
    const bool obeys = SetConsoleMode(handleOf(stream), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
    return obeys ? TerminalColors::Rgb : TerminalColors::None;
}

} // namespace kiv::internal
