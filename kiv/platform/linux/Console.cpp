#include "kiv/platform/Console.h"

#include "kiv/platform/StandardStreams.h"
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kiv::internal {
namespace {

struct OutputLock {
    OutputLock() { flockfile(stdout); }
    OutputLock(const OutputLock&) = delete;
    OutputLock& operator=(const OutputLock&) = delete;
    ~OutputLock() { funlockfile(stdout); }
};

int descriptorOf(StandardStream stream) {
    switch (stream) {
    case StandardStream::Input:
        return STDIN_FILENO;
    case StandardStream::Output:
        return STDOUT_FILENO;
    case StandardStream::Error:
        return STDERR_FILENO;
    }
    return -1;
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            // Whoever shares the pipe or terminal has made it non-blocking.
            pollfd ready{descriptor, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

bool writeToStandardOutput(std::string_view text) {
    const OutputLock lock;
    // The descriptor directly: the stream would cut a text larger than its buffer into several writes.
    if (fflush_unlocked(stdout) != 0) return false;
    return writeAll(fileno_unlocked(stdout), text);
}

bool writeStandardError(std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stderr) == text.size() && std::fflush(stderr) == 0;
}

bool isTerminal(StandardStream stream) {
    return isatty(descriptorOf(stream)) == 1;
}

unsigned getTerminalWidth(StandardStream stream) {
    winsize size{};
    return ioctl(descriptorOf(stream), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

TerminalColors getTerminalColors(StandardStream stream) {
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string_view(value ? value : "");
    };
    if (!isTerminal(stream) || !variable("NO_COLOR").empty()) return TerminalColors::None;
    const std::string_view kind = variable("TERM"), colors = variable("COLORTERM");
    if (kind.empty() || kind == "dumb") return TerminalColors::None;
    return colors == "truecolor" || colors == "24bit" ? TerminalColors::Rgb : TerminalColors::Palette256;
}

} // namespace kiv::internal
