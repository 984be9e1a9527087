#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <cstdio>

namespace kiv::platform {

enum class FileMode { Read, Write };

// A file as a stream of the C library, in binary mode; writing creates or truncates it. The path is UTF-8. Child
// processes do not inherit the file. Null for a null path, a directory, and what can't be opened.
KIV_API std::FILE* openFile(const char* path, FileMode mode);

// How long the file says it is; 0 for what tells no length, as pipes.
KIV_API uint64_t getFileLength(std::FILE* file);

} // namespace kiv::platform
