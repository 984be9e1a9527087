#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"
#include "kiv/platform/File.h"

namespace kiv {

// Whole files, read and written at once; paths are UTF-8. Any thread; failures give false.
class KIV_API File {
public:
    // Creates or truncates the file; true only if every byte was written.
    static bool writeFile(TextArg path, const ConstByteSpan& bytes);

    // Reads everything into the memory that `space` gives (see platform/File.h), at most 0xFFFFFFFF bytes. Logs a file
    // that can't be opened unless `quiet`, one that can't be read (a directory, one too long, one that ends early)
    // always.
    static bool readFile(TextArg path, bool quiet, const platform::FileSpace& space);
};

} // namespace kiv
