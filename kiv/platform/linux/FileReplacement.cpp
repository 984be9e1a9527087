#include "kiv/platform/FileReplacement.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kiv::platform {

namespace {

std::string behindLinks(const std::string& path) {
    char* const resolved = ::realpath(path.c_str(), nullptr);
    const std::string result = resolved ? resolved : path;
    std::free(resolved);
    return result;
}

// Whether the locked file is still the one of this name: its owner before may have put it into place.
bool hasName(const struct stat& opened, const std::string& path) {
    struct stat named;
    return ::lstat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino && named.st_dev == opened.st_dev;
}

// So that the name stays with the new contents, too. Not every file system can, and the contents are in place anyway.
void flushFolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    [[maybe_unused]] const int ignored = ::fsync(descriptor);
    ::close(descriptor);
}

} // namespace

FileReplacement::FileReplacement(const std::string& path) : m_path(behindLinks(path)) {
    struct stat old;
    if (path.empty() || path.find('\0') != path.npos) {
        m_failure = "has no name of a file";
    } else if (::stat(m_path.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) {
        m_failure = "is no ordinary file";
    } else {
        openFirstFree();
    }
}

bool FileReplacement::fail(const char* what) {
    if (m_failure.empty()) m_failure = what + (": " + std::error_code(errno, std::system_category()).message());
    return false;
}

bool FileReplacement::open() {
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    int file;
    do file = ::open(m_newPath.c_str(), flags, 0666);
    while (file < 0 && errno == EINTR);
    if (file < 0) return fail("can't be created");
    struct stat opened, old;
    // A file system without locks lets everybody in, and works as long as there is one at a time.
    const bool isBusy = ::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (isBusy || ::fstat(file, &opened) != 0 || !S_ISREG(opened.st_mode) || !hasName(opened, m_newPath)) {
        ::close(file);
        return true;
    }
    m_file = file;
    if (::ftruncate(file, 0) != 0) return fail("can't be created");
    // Who may read the old contents may read the new, and nobody else. The owner can only be kept by who may do so.
    if (::stat(m_path.c_str(), &old) == 0) {
        [[maybe_unused]] int ignored = ::fchown(file, old.st_uid, old.st_gid);
        ignored = ::fchmod(file, old.st_mode & 07777);
    }
    return true;
}

bool FileReplacement::write(const void* bytes, size_t size) {
    if (!m_failure.empty()) return false;
    const char* from = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t count = ::write(static_cast<int>(m_file), from, size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return fail("can't be written");
        from += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

bool FileReplacement::flush() {
    if (!m_failure.empty()) return false;
    return ::fsync(static_cast<int>(m_file)) == 0 || fail("can't be flushed to the disk");
}

bool FileReplacement::replace() {
    if (!flush()) return false;
    if (::rename(m_newPath.c_str(), m_path.c_str()) != 0) return fail("can't be replaced");
    m_newPath.clear();
    flushFolderOf(m_path);
    return true;
}

void FileReplacement::closeAndRemove() {
    if (m_file == -1) return;
    if (!m_newPath.empty()) ::unlink(m_newPath.c_str());
    ::close(static_cast<int>(m_file));
    m_file = -1;
}

} // namespace kiv::platform
