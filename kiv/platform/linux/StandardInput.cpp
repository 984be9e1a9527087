#include "kiv/platform/StandardInput.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace kiv::internal {
namespace {

InputSource* g_source;

} // namespace

InputSource::~InputSource() = default;

size_t readStandardInput(char* to, size_t size) {
    if (g_source) return g_source->read(to, size);
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, to, size);
        if (count >= 0) return static_cast<size_t>(count);
        if (errno == EAGAIN) {
            // Whoever shares the pipe or terminal has made it non-blocking.
            pollfd ready{STDIN_FILENO, POLLIN, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return 0;
        }
    }
}

InputSource* setStandardInputSource(InputSource* source) {
    return std::exchange(g_source, source);
}

} // namespace kiv::internal
