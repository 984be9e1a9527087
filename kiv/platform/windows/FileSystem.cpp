#include "kiv/platform/FileSystem.h"

#include "kiv/platform/windows/OwnedHandle.h"
#include "kiv/platform/windows/WidePath.h"
#include "kiv/platform/windows/WideText.h"

#include <aclapi.h>
#include <algorithm>
#include <memory>
#include <vector>
#include <windows.h>

namespace kiv::platform {

namespace {

// Someone may be looking at what was removed just now, a virus scanner for one; until then it is still there.
constexpr int removeAttempts = 20;
constexpr DWORD millisecondsBetween = 10;

constexpr const char* separators = "/\\";

// Other reparse points are files and folders whose contents the system fetches from elsewhere.
bool isLinkTag(DWORD tag) {
    return tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT;
}

int64_t sinceYear1970(const FILETIME& time) {
    const uint64_t ticks = uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    return static_cast<int64_t>(ticks / 10) - INT64_C(11644473600000000);
}

// Of BY_HANDLE_FILE_INFORMATION or WIN32_FIND_DATAW.
template <class Data>
void describe(const Data& data, FileInfo& info) {
    const bool isDirectory = data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    info.kind = isDirectory ? FileKind::Directory : FileKind::File;
    info.size = isDirectory ? 0 : uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
    info.modifiedMicroseconds = sinceYear1970(data.ftLastWriteTime);
}

// With the right to ask only, which is given whoever has the file open.
HANDLE openToAsk(const std::wstring& path, DWORD flags) {
    return ::CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr);
}

bool isLink(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
    const OwnedHandle file(openToAsk(path, FILE_FLAG_OPEN_REPARSE_POINT));
    FILE_ATTRIBUTE_TAG_INFO tag;
    return file && ::GetFileInformationByHandleEx(file.get(), FileAttributeTagInfo, &tag, sizeof tag) &&
           isLinkTag(tag.ReparseTag);
}

std::string joined(const std::string& path, const std::string& name) {
    return path.find_last_of(separators) + 1 == path.size() ? path + name : path + '\\' + name;
}

// With a slash behind it, the name of a link would stand for the folder it leads to; a root needs it.
std::string withoutSlashes(const std::string& path) {
    const size_t end = path.find_last_not_of(separators) + 1;
    return end == 0 || path[end - 1] == ':' ? path : path.substr(0, end);
}

std::string withSlashes(const std::wstring& wide) {
    std::string path = narrowText(wide);
    std::replace(path.begin(), path.end(), '\\', '/');
    return withoutSlashes(path);
}

// Of GetTempPathW and GetCurrentDirectoryW: `get` returns the length, or the room it needs.
template <class Get>
std::string askForPath(Get get) {
    std::wstring path(MAX_PATH + 1, L'\0');
    DWORD length;
    while ((length = get(static_cast<DWORD>(path.size()), path.data())) > path.size()) path.resize(length);
    path.resize(length);
    return withSlashes(path);
}

// To change a file, resp. what is in a folder; the numbers are the same for both.
constexpr DWORD changing = FILE_WRITE_DATA | FILE_APPEND_DATA | GENERIC_WRITE | GENERIC_ALL;

// What everybody may do; inherited entries are in the list, too.
bool isForEverybody(ACL* list) {
    if (!list) return true; // no list: no protection
    for (DWORD i = 0; i < list->AceCount; ++i) {
        void* entry = nullptr;
        if (!::GetAce(list, i, &entry)) return false;
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE || (allowed->Header.AceFlags & INHERIT_ONLY_ACE) != 0)
            continue;
        if ((allowed->Mask & changing) != 0 && ::IsWellKnownSid(&allowed->SidStart, WinWorldSid)) return true;
    }
    return false;
}

bool removeInTree(const std::string& path) {
    for (int i = 0; i < removeAttempts; ++i) {
        if (removeEntry(path)) return true;
        const DWORD error = ::GetLastError();
        if (error == ERROR_FILE_NOT_FOUND) return true;
        if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED && error != ERROR_DIR_NOT_EMPTY) break;
        ::Sleep(millisecondsBetween);
    }
    return false;
}

} // namespace

FileInfo fileInfo(const std::string& path) {
    const std::wstring wide = widePath(path);
    FileInfo info;
    if (wide.empty()) return info;
    info.isLink = isLink(widePath(withoutSlashes(path)));
    const OwnedHandle file(openToAsk(wide, 0));
    if (!file) return info;
    BY_HANDLE_FILE_INFORMATION data;
    if (::GetFileType(file.get()) != FILE_TYPE_DISK) {
        info.kind = FileKind::Other;
    } else if (::GetFileInformationByHandle(file.get(), &data)) {
        describe(data, info);
    }
    return info;
}

std::string canonicalPath(const std::string& path) {
    const OwnedHandle file(openToAsk(widePath(path), 0));
    if (!file) return {};
    std::string found = askForPath([&](DWORD room, wchar_t* to) {
        return ::GetFinalPathNameByHandleW(file.get(), to, room, FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    });
    if (found.starts_with("//?/UNC/")) return found.replace(0, 7, "/");
    return found.starts_with("//?/") ? found.substr(4) : found;
}

// Groups such as that of all who have logged in are left to the administrator: folders of the system's drive are open
// to them unless somebody has closed them.
bool isWritableByAll(const std::string& path) {
    std::wstring wide = widePath(path);
    ACL* list = nullptr;
    PSECURITY_DESCRIPTOR all = nullptr;
    if (wide.empty() || ::GetNamedSecurityInfoW(wide.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                                nullptr, &list, nullptr, &all) != ERROR_SUCCESS)
        return false;
    const std::unique_ptr<void, HLOCAL (*)(HLOCAL)> owned(all, &::LocalFree);
    return isForEverybody(list);
}

bool listDirectory(const std::string& path,
                   const std::function<void(const std::string& name, const FileInfo& info)>& entry) {
    // Asked for a pattern, the system would list more than one folder's worth, or a file.
    if (path.find_first_of("*?", path.starts_with("\\\\?\\") ? 4 : 0) != path.npos) return false;
    if (fileInfo(path).kind != FileKind::Directory) return false;
    struct Search {
        ~Search() {
            if (handle != INVALID_HANDLE_VALUE) ::FindClose(handle);
        }
        WIN32_FIND_DATAW data;
        HANDLE handle;
    } search;
    search.handle = ::FindFirstFileW(widePath(joined(path, "*")).c_str(), &search.data);
    // The root of an empty drive has not even "." and "..".
    if (search.handle == INVALID_HANDLE_VALUE) return ::GetLastError() == ERROR_FILE_NOT_FOUND;
    do {
        const std::string name = narrowText(search.data.cFileName);
        if (name == "." || name == "..") continue;
        FileInfo info;
        const bool isReparsePoint = search.data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT;
        if (isReparsePoint && isLinkTag(search.data.dwReserved0)) {
            info = fileInfo(joined(path, name));
            info.isLink = true;
        } else {
            describe(search.data, info);
        }
        entry(name, info);
    } while (::FindNextFileW(search.handle, &search.data));
    return ::GetLastError() == ERROR_NO_MORE_FILES;
}

bool createDirectories(const std::string& path) {
    std::vector<std::string> missing;
    std::string above = path;
    while (fileInfo(above).kind != FileKind::Directory) {
        if (above.empty()) break;
        missing.push_back(above);
        above.erase(above.find_last_not_of(separators) + 1);
        const size_t end = above.find_last_of(separators);
        above.erase(end == above.npos ? 0 : end);
    }
    for (; !missing.empty(); missing.pop_back()) {
        if (::CreateDirectoryW(widePath(missing.back()).c_str(), nullptr)) continue;
        if (::GetLastError() != ERROR_ALREADY_EXISTS) return false;
    }
    return fileInfo(path).kind == FileKind::Directory;
}

bool removeEntry(const std::string& path) {
    const std::wstring wide = widePath(withoutSlashes(path));
    const DWORD attributes = ::GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return ::RemoveDirectoryW(wide.c_str());
    if (attributes & FILE_ATTRIBUTE_READONLY) ::SetFileAttributesW(wide.c_str(), attributes & ~FILE_ATTRIBUTE_READONLY);
    return ::DeleteFileW(wide.c_str());
}

// Without recursion: paths may have more parts than the stack has room.
bool removeTree(const std::string& path) {
    const FileInfo root = fileInfo(path);
    if (root.kind != FileKind::Directory || root.isLink) return removeEntry(path);
    std::vector<std::string> open{path};
    while (!open.empty()) {
        const std::string folder = open.back();
        std::vector<std::string> others;
        const size_t before = open.size();
        const bool isListed = listDirectory(folder, [&](const std::string& name, const FileInfo& info) {
            const bool isFolder = info.kind == FileKind::Directory && !info.isLink;
            (isFolder ? open : others).push_back(joined(folder, name));
        });
        if (!isListed || !std::all_of(others.begin(), others.end(), removeInTree)) return false;
        if (open.size() > before) continue;
        if (!removeInTree(folder)) return false;
        open.pop_back();
    }
    return true;
}

bool renameEntry(const std::string& from, const std::string& to, Existing existing) {
    const DWORD flags = existing == Existing::Replace ? MOVEFILE_REPLACE_EXISTING : 0;
    return ::MoveFileExW(widePath(withoutSlashes(from)).c_str(), widePath(withoutSlashes(to)).c_str(), flags);
}

bool copyFile(const std::string& from, const std::string& to) {
    return ::CopyFileW(widePath(from).c_str(), widePath(to).c_str(), FALSE);
}

std::string temporaryDirectory() {
    return askForPath([](DWORD room, wchar_t* path) { return ::GetTempPathW(room, path); });
}

std::string currentDirectory() {
    return askForPath([](DWORD room, wchar_t* path) { return ::GetCurrentDirectoryW(room, path); });
}

} // namespace kiv::platform
