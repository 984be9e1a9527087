#pragma once

#include <utility>
#include <windows.h>

namespace kiv::platform {

// Closes a handle of the system; null and INVALID_HANDLE_VALUE are none.
class OwnedHandle {
public:
    OwnedHandle() = default;
    explicit OwnedHandle(HANDLE handle) : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;
    ~OwnedHandle() {
        if (m_handle) ::CloseHandle(m_handle);
    }

    explicit operator bool() const { return m_handle != nullptr; }
    HANDLE get() const { return m_handle; }
    HANDLE* address() { return &m_handle; }
    HANDLE detach() { return std::exchange(m_handle, nullptr); }

private:
    HANDLE m_handle = nullptr;
};

} // namespace kiv::platform
