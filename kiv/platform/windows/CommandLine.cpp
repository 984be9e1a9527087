#include "kiv/platform/CommandLine.h"

#include "kiv/platform/windows/WideText.h"

#include <memory>

#include <windows.h>

#include <shellapi.h>

namespace kiv::platform {

std::vector<std::string> commandLineArguments(int, char**) {
    int count = 0;
    const std::unique_ptr<wchar_t*, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &count),
                                                               &LocalFree);
    std::vector<std::string> arguments;
    for (int i = 1; wide && i < count; ++i) arguments.push_back(narrowText(wide.get()[i]));
    return arguments;
}

std::string programPath() {
    std::wstring path(32768, L'\0'); // the longest there are
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return narrowText(path);
}

} // namespace kiv::platform
