#include "kiv/platform/FileReplacement.h"

#include "kiv/platform/windows/WidePath.h"

#include <algorithm>
#include <system_error>
#include <windows.h>

namespace kiv::platform {

namespace {

constexpr uint64_t largestWrite = uint64_t{1} << 30;

// Someone may be reading the old file just now, a virus scanner for one.
constexpr int replaceAttempts = 20;
constexpr DWORD millisecondsBetween = 10;

bool isBusyError(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED || error == ERROR_LOCK_VIOLATION;
}

HANDLE handle(intptr_t file) {
    return reinterpret_cast<HANDLE>(file);
}

} // namespace

FileReplacement::FileReplacement(const std::string& path) : m_path(path) {
    const std::wstring wide = widePath(path);
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (wide.empty()) {
        m_failure = "has no name of a file";
    } else if (attributes != INVALID_FILE_ATTRIBUTES &&
               (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE))) {
        m_failure = "is no ordinary file";
    } else {
        openFirstFree();
    }
}

bool FileReplacement::fail(const char* what) {
    if (!m_failure.empty()) return false;
    m_failure = what + (": " + std::error_code(static_cast<int>(::GetLastError()), std::system_category()).message());
    m_failure.erase(m_failure.find_last_not_of("\r\n") + 1);
    return false;
}

// Others may move the file, for that is what we do to it while it is open, but neither read nor write it.
bool FileReplacement::open() {
    const HANDLE file = ::CreateFileW(widePath(m_newPath).c_str(), GENERIC_WRITE, FILE_SHARE_DELETE, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        m_file = reinterpret_cast<intptr_t>(file);
        return true;
    }
    return ::GetLastError() == ERROR_SHARING_VIOLATION || fail("can't be created");
}

bool FileReplacement::write(const void* bytes, size_t size) {
    if (!m_failure.empty()) return false;
    const char* from = static_cast<const char*>(bytes);
    while (size > 0) {
        DWORD count = 0;
        const DWORD step = static_cast<DWORD>(std::min<uint64_t>(size, largestWrite));
        if (!::WriteFile(handle(m_file), from, step, &count, nullptr) || count == 0) return fail("can't be written");
        from += count;
        size -= count;
    }
    return true;
}

bool FileReplacement::flush() {
    if (!m_failure.empty()) return false;
    return ::FlushFileBuffers(handle(m_file)) || fail("can't be flushed to the disk");
}

bool FileReplacement::replace() {
    if (!flush()) return false;
    const std::wstring from = widePath(m_newPath), to = widePath(m_path);
    for (int i = 1; !::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH); ++i) {
        if (i == replaceAttempts || !isBusyError(::GetLastError())) return fail("can't be replaced");
        ::Sleep(millisecondsBetween);
    }
    m_newPath.clear();
    return true;
}

// In this order: an open file of ours could be removed, too, but would keep its name until it is closed.
void FileReplacement::closeAndRemove() {
    if (m_file == -1) return;
    ::CloseHandle(handle(m_file));
    m_file = -1;
    if (!m_newPath.empty()) ::DeleteFileW(widePath(m_newPath).c_str());
}

} // namespace kiv::platform
