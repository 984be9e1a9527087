#include "kiv/platform/StandardInput.h"

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

bool InputWait::waitForSystem() {
    pollfd ready[] = {{STDIN_FILENO, POLLIN, 0}, {static_cast<int>(m_waker.m_signal), POLLIN, 0}};
    while (::poll(ready, 2, -1) < 0 && errno == EINTR) {
    }
    return !m_isCancelled;
}

} // namespace kiv::internal
