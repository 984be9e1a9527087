#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdio>

namespace kiv::platform {

// std::fopen for a UTF-8 path on every system. Child processes do not inherit the file. Null for a null path, a path
// that can't be opened, and a directory.
KIV_API std::FILE* openFile(const char* path, const char* mode);

} // namespace kiv::platform
