#include "kiv/platform/FileLock.h"

#include "kiv/platform/windows/WidePath.h"

#include <windows.h>

namespace kiv::platform {

bool FileLock::tryLock() {
    if (m_file != none) return true;
    const HANDLE file = ::CreateFileW(widePath(m_path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    m_file = reinterpret_cast<intptr_t>(file);
    return true;
}

void FileLock::unlock() {
    if (m_file != none) ::CloseHandle(reinterpret_cast<HANDLE>(m_file));
    m_file = none;
}

} // namespace kiv::platform
