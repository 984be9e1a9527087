#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <string>

namespace kiv::platform {

// A file that one program at a time holds open for itself; the system lets go of it when the program ends, however that
// happens. The file is created where it is missing, and stays. Threads: one at a time.
class KIV_API FileLock {
public:
    explicit FileLock(const std::string& path) : m_path(path) {}
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock() { unlock(); }

    // True when this object holds the lock now. False when another does, in this program or elsewhere, and when the
    // file can't be opened.
    bool tryLock();
    void unlock();

private:
    static constexpr intptr_t none = -1;

    const std::string m_path;
    intptr_t m_file = none; // a descriptor, resp. a handle
};

} // namespace kiv::platform
