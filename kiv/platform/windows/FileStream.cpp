#include "kiv/platform/FileStream.h"

#include "kiv/platform/windows/WidePath.h"

#include <cstdio>
#include <string>

namespace kiv::platform {

std::FILE* openFile(const char* path, const char* mode) {
    if (!path) return nullptr;
    // Directories do not open here. The last letter keeps the file from child processes.
    const std::string letters = std::string(mode) + 'N';
    return ::_wfopen(widePath(path).c_str(), std::wstring(letters.begin(), letters.end()).c_str());
}

} // namespace kiv::platform
