#include "kiv/platform/FileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace kiv::platform {

bool FileLock::tryLock() {
    if (m_file != none) return true;
    if (m_path.find('\0') != m_path.npos) return false;
    int file;
    do file = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
    while (file < 0 && errno == EINTR);
    if (file < 0) return false;
    // Not by fcntl(): such a lock ends when the program closes any descriptor of the file.
    if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        ::close(file);
        return false;
    }
    m_file = file;
    return true;
}

void FileLock::unlock() {
    if (m_file != none) ::close(static_cast<int>(m_file));
    m_file = none;
}

} // namespace kiv::platform
