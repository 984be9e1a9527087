#include "kiv/platform/FileStream.h"

#include "kiv/platform/windows/WidePath.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

namespace kiv::platform {

// Directories do not open here.
std::FILE* openFile(const char* path, FileMode mode) {
    if (!path) return nullptr;
    const bool isWritten = mode == FileMode::Write;
    const int flags = isWritten ? _O_WRONLY | _O_CREAT | _O_TRUNC : _O_RDONLY;
    const int file = ::_wopen(widePath(path).c_str(), flags | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    if (file < 0) return nullptr;
    std::FILE* stream = ::_fdopen(file, isWritten ? "wb" : "rb");
    if (!stream) ::_close(file);
    return stream;
}

uint64_t getFileLength(std::FILE* file) {
    const int64_t length = ::_filelengthi64(::_fileno(file));
    return length > 0 ? static_cast<uint64_t>(length) : 0;
}

} // namespace kiv::platform
