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

} // namespace kiv::platform
