#include "kiv/platform/Waker.h"

#include <algorithm>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kiv::platform {

Waker::Waker() : m_signal(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (m_signal < 0) throw std::bad_alloc();
}

Waker::~Waker() {
    ::close(static_cast<int>(m_signal));
}

void Waker::wait(unsigned milliseconds) {
    if (!beginWait()) return;
    pollfd ready{static_cast<int>(m_signal), POLLIN, 0};
    ::poll(&ready, 1, static_cast<int>(std::min(milliseconds, 0x7FFFFFFFu)));
    endWait();
}

void Waker::signal() {
    ::eventfd_write(static_cast<int>(m_signal), 1);
}

void Waker::clear() {
    eventfd_t count;
    ::eventfd_read(static_cast<int>(m_signal), &count);
}

} // namespace kiv::platform
