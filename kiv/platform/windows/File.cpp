#include "kiv/platform/File.h"

#include "kiv/platform/FileReading.h"
#include "kiv/platform/windows/WidePath.h"

#include <windows.h>

namespace kiv::platform {

namespace {

class FileHandle {
public:
    explicit FileHandle(HANDLE handle) : m_handle(handle) {}
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle() { close(); }

    bool isOpen() const { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return m_handle; }

    // The number of bytes read, 0 at the end, -1 on failure.
    int64_t read(void* to, size_t size) {
        DWORD count = 0;
        if (::ReadFile(m_handle, to, static_cast<DWORD>(size), &count, nullptr)) return count;
        // A pipe whose writer has gone is at its end.
        return ::GetLastError() == ERROR_BROKEN_PIPE || ::GetLastError() == ERROR_HANDLE_EOF ? 0 : -1;
    }

    bool write(const char* from, size_t size) {
        while (size > 0) {
            const DWORD step = static_cast<DWORD>(std::min<uint64_t>(size, largestRead));
            DWORD count = 0;
            if (!::WriteFile(m_handle, from, step, &count, nullptr) || count == 0) return false;
            from += count;
            size -= count;
        }
        return true;
    }

    bool close() {
        const HANDLE handle = m_handle;
        m_handle = INVALID_HANDLE_VALUE;
        return handle == INVALID_HANDLE_VALUE || ::CloseHandle(handle);
    }

private:
    HANDLE m_handle;
};

bool writeTo(const std::string& path, DWORD access, DWORD creation, const void* bytes, size_t size) {
    FileHandle file(::CreateFileW(widePath(path).c_str(), access, FILE_SHARE_READ, nullptr, creation,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    return file.isOpen() && file.write(static_cast<const char*>(bytes), size) && file.close();
}

} // namespace

FileReadResult readWholeFile(const std::string& path, uint64_t limit, const FileSpace& space) {
    const std::wstring wide = widePath(path);
    // Directories do not open for reading here; what they are must be asked first.
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return {FileStatus::CantRead, 0};
    const DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    FileHandle file(::CreateFileW(wide.c_str(), GENERIC_READ, sharing, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file.isOpen()) return {FileStatus::CantOpen, 0};
    LARGE_INTEGER length{};
    if (::GetFileType(file.get()) == FILE_TYPE_DISK && !::GetFileSizeEx(file.get(), &length))
        return {FileStatus::CantRead, 0};
    return readOpenFile(file, static_cast<uint64_t>(length.QuadPart), limit, space);
}

bool writeWholeFile(const std::string& path, const void* bytes, size_t size) {
    return writeTo(path, GENERIC_WRITE, CREATE_ALWAYS, bytes, size);
}

bool appendToFile(const std::string& path, const void* bytes, size_t size) {
    return writeTo(path, FILE_APPEND_DATA | SYNCHRONIZE, OPEN_ALWAYS, bytes, size);
}

} // namespace kiv::platform
