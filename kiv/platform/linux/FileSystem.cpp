#include "kiv/platform/FileSystem.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace kiv::platform {

namespace {

namespace fs = std::filesystem;

bool isName(const std::string& path) {
    return !path.empty() && path.find('\0') == path.npos;
}

FileKind kindOf(const struct stat& status) {
    if (S_ISREG(status.st_mode)) return FileKind::File;
    return S_ISDIR(status.st_mode) ? FileKind::Directory : FileKind::Other;
}

// With a slash behind it, the name of a link would stand for the folder it leads to.
std::string withoutSlashes(const std::string& path) {
    return path.substr(0, std::max<size_t>(path.find_last_not_of('/') + 1, 1));
}

} // namespace

FileInfo fileInfo(const std::string& path) {
    struct stat status;
    if (!isName(path) || ::lstat(withoutSlashes(path).c_str(), &status) != 0) return {};
    FileInfo info;
    info.isLink = S_ISLNK(status.st_mode);
    if (::stat(path.c_str(), &status) != 0) return info;
    info.kind = kindOf(status);
    info.size = info.kind == FileKind::File ? static_cast<uint64_t>(status.st_size) : 0;
    info.modifiedMicroseconds = int64_t{status.st_mtim.tv_sec} * 1000000 + status.st_mtim.tv_nsec / 1000;
    return info;
}

std::string canonicalPath(const std::string& path) {
    if (!isName(path)) return {};
    std::error_code error;
    return fs::canonical(path, error).native();
}

bool isWritableByAll(const std::string& path) {
    struct stat status;
    return isName(path) && ::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0;
}

bool listDirectory(const std::string& path,
                   const std::function<void(const std::string& name, const FileInfo& info)>& entry) {
    if (!isName(path)) return false;
    std::error_code error;
    fs::directory_iterator it(path, error);
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        const FileInfo info = fileInfo(it->path().native());
        // It may be gone by now.
        if (info.kind != FileKind::None || info.isLink) entry(it->path().filename().native(), info);
    }
    return !error;
}

bool createDirectories(const std::string& path) {
    if (!isName(path)) return false;
    std::error_code error;
    fs::create_directories(path, error);
    return fileInfo(path).kind == FileKind::Directory;
}

bool removeEntry(const std::string& path) {
    return isName(path) && std::remove(withoutSlashes(path).c_str()) == 0;
}

bool removeTree(const std::string& path) {
    if (!isName(path)) return false;
    std::error_code error;
    const auto count = fs::remove_all(withoutSlashes(path), error);
    return !error && count > 0;
}

bool renameEntry(const std::string& from, const std::string& to, Existing existing) {
    if (!isName(from) || !isName(to)) return false;
    const std::string source = withoutSlashes(from), target = withoutSlashes(to);
    if (existing == Existing::Replace) return std::rename(source.c_str(), target.c_str()) == 0;
    if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return true;
    // Not every file system can refuse by itself.
    if (errno != EINVAL && errno != ENOSYS) return false;
    struct stat status;
    return ::lstat(target.c_str(), &status) != 0 && errno == ENOENT && std::rename(source.c_str(), target.c_str()) == 0;
}

bool copyFile(const std::string& from, const std::string& to) {
    std::error_code error;
    return isName(from) && isName(to) && fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
}

std::string temporaryDirectory() {
    std::error_code error;
    const std::string path = fs::temp_directory_path(error).native();
    return error ? std::string() : withoutSlashes(path);
}

std::string currentDirectory() {
    std::error_code error;
    return fs::current_path(error).native();
}

} // namespace kiv::platform
