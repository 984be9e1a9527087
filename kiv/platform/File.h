#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

// Whole files at once. Paths are UTF-8, whatever the system's own form is; a path with a zero byte inside opens
// nothing.

namespace kiv::platform {

enum class FileStatus { Ok, CantOpen, CantRead };

struct FileReadResult {
    FileStatus status;
    uint64_t length; // as the file told it when it was opened; 0 while it is not open
};

// Gives room for `size` bytes in all, keeping what was read so far, and returns the first. What is thrown here passes
// through; the file is closed then.
using FileSpace = std::function<void*(uint64_t size)>;

// Reads the file from its start to the length it tells, into one call's space. What tells no length (pipes, devices,
// files the system makes up as they are read) is read on until its end, into growing space; the last call of `space`
// then gives the true size. Directories, files longer than `limit` and files that end early are CantRead.
KIV_API FileReadResult readWholeFile(const std::string& path, uint64_t limit, const FileSpace& space);

// Creates or truncates the file and writes all of it; false when it can't be opened, written in full and closed.
KIV_API bool writeWholeFile(const std::string& path, const void* bytes, size_t size);

// The same behind what is there, wherever others have put its end by then.
KIV_API bool appendToFile(const std::string& path, const void* bytes, size_t size);

} // namespace kiv::platform
