#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <optional>

namespace kiv {

// What can be done with directories by name; paths are UTF-8, with "/" on every system. Links stand for what they lead
// to, but where they are removed or renamed. Any thread; failures give false.
class KIV_API Directory {
public:
    struct Entry {
        String name;
        bool isDirectory = false; // also a link to one
        bool isLink = false;
        uint64_t size = 0; // of a file
    };

    static const char* getStaticClassName() { return "Directory"; }

    static bool exists(TextArg path);
    // With all directories above it; true also when it was there before.
    static bool create(TextArg path);
    // What is in it, but for "." and "..", in the order of the names' bytes. False, and `out` empty, unless all of it
    // can be read.
    static bool list(TextArg path, Vector<Entry>& out);
    // An empty one. A link to a directory is a file here: see File::remove().
    static bool remove(TextArg path);
    // With all that is in it, but without what links in it lead to. False when something is left. Paths that end with
    // ".", ".." or a root are refused.
    static bool removeTree(TextArg path);
    // Within one file system; false when there is something of the name `to`.
    static bool rename(TextArg from, TextArg to);

    // A digest of the names in it, and in all below it, and of the files' contents: the same on every system, whatever
    // the times and rights. Links to files count as files; links to directories, links to nothing and devices with
    // their names only. Nothing when something of it can't be read, or more than 64 directories are within each other.
    static std::optional<uint32_t> getDirectoryHash(TextArg path);

    // Both parts with one "/" between them, so that even an absolute `name` is below `path`; one part if the other is
    // empty.
    static String join(TextArg path, TextArg name);
    // Empty when there is none.
    static String getTemporary();
    static String getCurrent();
};

} // namespace kiv
