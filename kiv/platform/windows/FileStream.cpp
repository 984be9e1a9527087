#include "kiv/platform/FileStream.h"

#include <cstdio>
#include <string>

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

namespace kiv::platform {
namespace {

// Empty when the text is not UTF-8.
std::wstring wideText(const char* text) {
    const int size = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (size <= 0) return {};
    std::wstring wide(static_cast<size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), size);
    wide.pop_back();
    return wide;
}

} // namespace

std::FILE* openFile(const char* path, const char* mode) {
    // Directories do not open here.
    return path ? ::_wfopen(wideText(path).c_str(), (wideText(mode) + L'N').c_str()) : nullptr;
}

} // namespace kiv::platform
