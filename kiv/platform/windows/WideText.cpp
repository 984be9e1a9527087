#include "kiv/platform/windows/WideText.h"

#include <windows.h>

namespace kiv::platform {

bool wideText(const std::string& text, std::wstring& out) {
    out.clear();
    if (text.empty()) return true;
    if (text.size() > 0xFFFF || text.find('\0') != std::string::npos) return false;
    const int size = static_cast<int>(text.size());
    out.resize(text.size());
    const int count = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, out.data(), size);
    out.resize(static_cast<size_t>(count));
    return count != 0;
}

std::string narrowText(std::wstring_view text) {
    if (text.empty()) return {};
    const int size = static_cast<int>(text.size());
    std::string utf8(text.size() * 3, '\0');
    const int room = static_cast<int>(utf8.size());
    utf8.resize(
        static_cast<size_t>(::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, utf8.data(), room, nullptr, nullptr)));
    return utf8;
}

} // namespace kiv::platform
