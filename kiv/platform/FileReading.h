#pragma once

#include "kiv/platform/File.h"

#include <algorithm>

// The part of readWholeFile() that is the same on every system. `File` has int64_t read(void* to, size_t size): the
// number of bytes read, 0 at the end, -1 on failure.

namespace kiv::platform {

// Systems cut single reads off near 2 GiB.
inline constexpr uint64_t largestRead = uint64_t{1} << 30;

// Reads until `size` bytes are there or the file ends; false on failure.
template <class File>
bool readUpTo(File& file, char* to, uint64_t size, uint64_t& count) {
    while (count < size) {
        const int64_t step = file.read(to + count, static_cast<size_t>(std::min(size - count, largestRead)));
        if (step < 0) return false;
        if (step == 0) break;
        count += static_cast<uint64_t>(step);
    }
    return true;
}

template <class File>
FileReadResult readOpenFile(File& file, uint64_t length, uint64_t limit, const FileSpace& space) {
    if (length > limit) return {FileStatus::CantRead, length};
    uint64_t count = 0;
    if (length > 0) {
        const bool ok = readUpTo(file, static_cast<char*>(space(length)), length, count) && count == length;
        return {ok ? FileStatus::Ok : FileStatus::CantRead, length};
    }
    // The first piece is small: nearly always an empty file is met here.
    for (uint64_t room = std::min<uint64_t>(4096, limit);; room = std::min(room * 2, limit)) {
        if (!readUpTo(file, static_cast<char*>(space(room)), room, count)) return {FileStatus::CantRead, 0};
        if (count < room) break;
        if (room == limit) {
            char more;
            if (file.read(&more, 1) != 0) return {FileStatus::CantRead, 0};
            break;
        }
    }
    space(count);
    return {FileStatus::Ok, 0};
}

} // namespace kiv::platform
