#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/String.h"
#include "kiv/platform/FileLock.h"

namespace kiv {

// Guards a resource between programs by a file that at most one of them holds. Two of these on one file exclude each
// other within a program, too. The lock ends with the object, or with the program, however that happens; the file
// stays. Threads: one at a time.
class KIV_API ProcessLockFile : public Object {
    KIV_OBJECT(ProcessLockFile, Object)
public:
    // Opens nothing yet.
    explicit ProcessLockFile(const String& path);
    ~ProcessLockFile() override;

    // Does not wait. True when this object holds the lock now.
    bool tryLock();
    // Nothing without the lock.
    void unlock();

private:
    platform::FileLock m_lock;
};

} // namespace kiv
