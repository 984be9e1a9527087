#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/GregorianDate.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"
#include "kiv/platform/File.h"

#include <cstdint>
#include <optional>

namespace kiv {

// Whole files, read and written at once, and what can be done with them by name; paths are UTF-8, with "/" on every
// system. Links stand for what they lead to, but where they are removed or renamed. Any thread; failures give false.
class KIV_API File {
public:
    static const char* getStaticClassName() { return "File"; }

    // Creates or truncates the file; true only if every byte was written.
    static bool writeFile(TextArg path, const ConstByteSpan& bytes);

    // Reads everything into the memory that `space` gives (see platform/File.h), at most 0xFFFFFFFF bytes. Logs a file
    // that can't be opened unless `quiet`, one that can't be read (a directory, one too long, one that ends early)
    // always.
    static bool readFile(TextArg path, bool quiet, const platform::FileSpace& space);

    // True for all but directories.
    static bool exists(TextArg path);
    // Nothing for directories, and where there is no file.
    static std::optional<uint64_t> getSize(TextArg path);
    // When it was last written; invalid where there is nothing of the name.
    static GregorianDate getModificationTime(TextArg path);

    // Creates the file where there is none.
    static bool appendFile(TextArg path, const ConstByteSpan& bytes);
    // As writeFile(), but all at once: whenever the program or the system stops, the file has its old contents or the
    // new. Those of a link's file, which stays one.
    static bool replaceFile(TextArg path, const ConstByteSpan& bytes);
    // An ordinary file; one of the name `to` is overwritten, and may be left in pieces on failure.
    static bool copy(TextArg from, TextArg to);
    // Within one file system, and all at once; a file of the name `to` is replaced.
    static bool rename(TextArg from, TextArg to);
    // No directories.
    static bool remove(TextArg path);
};

} // namespace kiv
