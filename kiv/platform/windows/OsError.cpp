#include "kiv/platform/OsError.h"

#include "kiv/platform/windows/WideText.h"

#include <windows.h>

namespace kiv::platform {

std::string systemErrorText(int32_t error) {
    wchar_t text[512];
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
    const DWORD size = ::FormatMessageW(flags, nullptr, static_cast<DWORD>(error), 0, text, 512, nullptr);
    std::string utf8 = narrowText({text, size});
    utf8.erase(utf8.find_last_not_of(" \r\n") + 1);
    return utf8.empty() ? "error " + std::to_string(error) : utf8;
}

} // namespace kiv::platform
