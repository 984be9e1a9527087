#include "kiv/process/ProcessLockFile.h"

namespace kiv {

ProcessLockFile::ProcessLockFile(const String& path) : m_lock(path) {}

ProcessLockFile::~ProcessLockFile() = default;

bool ProcessLockFile::tryLock() {
    return m_lock.tryLock();
}

void ProcessLockFile::unlock() {
    m_lock.unlock();
}

} // namespace kiv
