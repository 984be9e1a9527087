#include "kiv/platform/File.h"

#include "kiv/platform/FileReading.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kiv::platform {

namespace {

class Descriptor {
public:
    Descriptor(const std::string& path, int flags) {
        if (path.find('\0') != std::string::npos) return;
        do m_descriptor = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
        while (m_descriptor < 0 && errno == EINTR);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    bool isOpen() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }

    // The number of bytes read, 0 at the end, -1 on failure.
    int64_t read(void* to, size_t size) {
        ssize_t count;
        do count = ::read(m_descriptor, to, size);
        while (count < 0 && errno == EINTR);
        return count;
    }

    bool write(const char* from, size_t size) {
        while (size > 0) {
            const ssize_t count = ::write(m_descriptor, from, size);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return false;
            from += count;
            size -= static_cast<size_t>(count);
        }
        return true;
    }

    // An interrupted close has closed the descriptor on Linux: it must not be tried again.
    bool close() {
        const int descriptor = m_descriptor;
        m_descriptor = -1;
        return descriptor < 0 || ::close(descriptor) == 0 || errno == EINTR;
    }

private:
    int m_descriptor = -1;
};

bool writeTo(const std::string& path, int flag, const void* bytes, size_t size) {
    Descriptor file(path, O_WRONLY | O_CREAT | flag);
    return file.isOpen() && file.write(static_cast<const char*>(bytes), size) && file.close();
}

} // namespace

FileReadResult readWholeFile(const std::string& path, uint64_t limit, const FileSpace& space) {
    Descriptor file(path, O_RDONLY);
    if (!file.isOpen()) return {FileStatus::CantOpen, 0};
    struct stat status;
    if (::fstat(file.get(), &status) != 0 || S_ISDIR(status.st_mode)) return {FileStatus::CantRead, 0};
    const uint64_t length = S_ISREG(status.st_mode) ? static_cast<uint64_t>(status.st_size) : 0;
    return readOpenFile(file, length, limit, space);
}

bool writeWholeFile(const std::string& path, const void* bytes, size_t size) {
    return writeTo(path, O_TRUNC, bytes, size);
}

bool appendToFile(const std::string& path, const void* bytes, size_t size) {
    return writeTo(path, O_APPEND, bytes, size);
}

} // namespace kiv::platform
