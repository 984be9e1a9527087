#include "kiv/platform/FileStream.h"

#include <sys/stat.h>

namespace kiv::platform {

std::FILE* openFile(const char* path, FileMode mode) {
    if (!path) return nullptr;
    std::FILE* file = std::fopen(path, mode == FileMode::Write ? "wbe" : "rbe");
    struct stat status;
    // A directory can be opened for reading, only reading fails.
    if (file && (::fstat(::fileno(file), &status) != 0 || S_ISDIR(status.st_mode))) {
        std::fclose(file);
        return nullptr;
    }
    return file;
}

uint64_t getFileLength(std::FILE* file) {
    struct stat status;
    return ::fstat(::fileno(file), &status) == 0 && S_ISREG(status.st_mode) ? static_cast<uint64_t>(status.st_size) : 0;
}

} // namespace kiv::platform
