#include "kiv/platform/windows/WidePath.h"

#include "kiv/platform/windows/WideText.h"

#include <windows.h>

namespace kiv::platform {

namespace {

// Creating a folder needs room for a short file name in it, which makes this limit lower than MAX_PATH.
constexpr size_t longestClassicPath = MAX_PATH - 12;

// Beyond the limit only the extended form works, which must be absolute and is taken literally.
std::wstring extendedPath(const std::wstring& path) {
    std::wstring full(::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
    full.resize(::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

} // namespace

std::wstring widePath(const std::string& path) {
    std::wstring wide;
    if (!wideText(path, wide) || wide.empty()) return {};
    const bool isShort = wide.size() < longestClassicPath;
    return isShort || wide.starts_with(L"\\\\?\\") || wide.starts_with(L"\\\\.\\") ? wide : extendedPath(wide);
}

} // namespace kiv::platform
