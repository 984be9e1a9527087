#include "kiv/platform/StandardStreams.h"

#include <algorithm>

#include <windows.h>

namespace kiv::internal {

size_t readFromStandardInput(char* to, size_t size) {
    const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
    const auto step = static_cast<DWORD>(std::min<size_t>(size, 0x40000000));
    DWORD count = 0;
    // A write of nothing into a pipe wakes its reader with nothing: that is not the end, unless the pipe is broken,
    // which Wine tells of its host's pipes only to who peeks.
    do {
        if (!::ReadFile(input, to, step, &count, nullptr)) return 0;
    } while (count == 0 && ::GetFileType(input) == FILE_TYPE_PIPE &&
             ::PeekNamedPipe(input, nullptr, 0, nullptr, nullptr, nullptr));
    return count;
}

} // namespace kiv::internal
