#include "kiv/platform/Waker.h"

#include <new>

#include <windows.h>

namespace kiv::platform {

Waker::Waker() : m_signal(reinterpret_cast<intptr_t>(::CreateEventW(nullptr, TRUE, FALSE, nullptr))) {
    if (!m_signal) throw std::bad_alloc();
}

Waker::~Waker() {
    ::CloseHandle(reinterpret_cast<HANDLE>(m_signal));
}

void Waker::wait(unsigned milliseconds) {
    if (!beginWait()) return;
    ::WaitForSingleObject(reinterpret_cast<HANDLE>(m_signal), milliseconds);
    endWait();
}

void Waker::signal() {
    ::SetEvent(reinterpret_cast<HANDLE>(m_signal));
}

void Waker::clear() {
    ::ResetEvent(reinterpret_cast<HANDLE>(m_signal));
}

} // namespace kiv::platform
