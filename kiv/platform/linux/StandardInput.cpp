#include "kiv/platform/StandardStreams.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace kiv::internal {

size_t readFromStandardInput(char* to, size_t size) {
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

} // namespace kiv::internal
