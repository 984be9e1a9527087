#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <functional>
#include <string>

// Files and folders by name. Paths are UTF-8, with "/" between the parts (on Windows also "\"); a path that is empty,
// has a zero byte inside or can't be expressed names nothing. Nothing but memory shortage throws.

namespace kiv::platform {

enum class FileKind { None, File, Directory, Other };

struct FileInfo {
    FileKind kind = FileKind::None;   // of what a link leads to; None also when it leads nowhere
    bool isLink = false;              // symbolic links, and on Windows junctions
    uint64_t size = 0;                // of a file
    int64_t modifiedMicroseconds = 0; // since 1970, UTC
};

KIV_API FileInfo fileInfo(const std::string& path);

// The absolute path of what is there, without links, "." and "..", with "/" between the parts; empty when nothing is
// there.
KIV_API std::string canonicalPath(const std::string& path);

// Whether everybody on this machine may change what is there, resp. what is in a folder. False when nothing is there or
// the system does not tell.
KIV_API bool isWritableByAll(const std::string& path);

// Calls `entry` for all there is in the folder but "." and "..", in no order. False when not all of it can be read.
// `entry` must change nothing there.
KIV_API bool listDirectory(const std::string& path,
                           const std::function<void(const std::string& name, const FileInfo& info)>& entry);

// With all folders above it; true when it is there in the end.
KIV_API bool createDirectories(const std::string& path);

// A file, an empty folder, or a link and not what it leads to; write protection of a file does not hinder.
KIV_API bool removeEntry(const std::string& path);
// The same for a folder with all that is in it; what links lead to stays. False when something is left, or nothing was
// there.
KIV_API bool removeTree(const std::string& path);

enum class Existing { Refuse, Replace };

// Within one file system. A folder never takes the place of something, nor something that of a folder that is not
// empty.
KIV_API bool renameEntry(const std::string& from, const std::string& to, Existing existing);

// An ordinary file's contents and rights. Of `to`, if it exists, the contents are overwritten; on failure they may be
// lost. A file is not copied onto itself.
KIV_API bool copyFile(const std::string& from, const std::string& to);

// With "/", and none at the end but that of a root; empty when there is none.
KIV_API std::string temporaryDirectory();
KIV_API std::string currentDirectory();

} // namespace kiv::platform
