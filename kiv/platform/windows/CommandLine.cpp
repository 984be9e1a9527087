#include "kiv/platform/CommandLine.h"

#include <memory>

#include <windows.h>

#include <shellapi.h>

namespace kiv::platform {

namespace {

std::string utf8Of(const wchar_t* text) {
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return {};
    std::string utf8(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, utf8.data(), size, nullptr, nullptr);
    utf8.pop_back();
    return utf8;
}

} // namespace

std::vector<std::string> commandLineArguments(int, char**) {
    int count = 0;
    const std::unique_ptr<wchar_t*, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &count),
                                                               &LocalFree);
    std::vector<std::string> arguments;
    for (int i = 1; wide && i < count; ++i) arguments.push_back(utf8Of(wide.get()[i]));
    return arguments;
}

} // namespace kiv::platform
