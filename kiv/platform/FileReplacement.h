#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kiv::platform {

// New contents for a file, old or not there yet, that take its place all at once: whenever the program or the system
// stops, the file has its old contents or the new. Until then they are in a file of the same folder, named as the file
// with ".new" behind, which a stopped program may leave; the next one reuses it. Several may work on one file: the last
// to commit prevails. Paths are UTF-8; of a symbolic link the file behind it is replaced. Threads: one at a time.
class KIV_API FileReplacement {
public:
    explicit FileReplacement(const std::string& path);
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    // Removes the new file unless it was committed.
    ~FileReplacement();

    // False on failure, at once after an earlier one.
    bool write(const void* bytes, size_t size);
    // Waits until what was written is on the disk; commit() then has nothing to wait for. False as of write().
    bool flush();
    // Waits until the new contents are on the disk and puts them into place. Once.
    bool commit();

    // What failed first and why, as "can't be written: ..."; empty as long as all is well.
    const std::string& getFailure() const { return m_failure; }

private:
    void openFirstFree();
    // The system's part. Opens the new file and keeps others out of it; false on failure, true without a file when
    // another has this one.
    bool open();
    bool replace();
    void closeAndRemove();
    // With the system's reason; false.
    bool fail(const char* what);

    intptr_t m_file = -1; // a descriptor, resp. a handle
    std::string m_path;
    std::string m_newPath;
    std::string m_failure;
};

} // namespace kiv::platform
