#include "kiv/platform/Shell.h"

#include "kiv/platform/ChildProcess.h"
#include "kiv/platform/windows/WideText.h"

#include <windows.h>

namespace kiv::platform {
namespace {

std::string environmentText(const wchar_t* name) {
    wchar_t text[MAX_PATH];
    const DWORD length = ::GetEnvironmentVariableW(name, text, MAX_PATH);
    return length > 0 && length < MAX_PATH ? narrowText({text, length}) : std::string();
}

std::string findProgram(const std::string& name) {
    std::wstring wide, path(32768, L'\0'); // the longest there are
    if (name.empty() || !wideText(name, wide)) return {};
    const DWORD size = static_cast<DWORD>(path.size());
    const DWORD length = ::SearchPathW(nullptr, wide.c_str(), L".exe", size, path.data(), nullptr);
    return length < size ? narrowText({path.data(), length}) : std::string();
}

// One that begins with a double quote would be taken as enclosed already.
std::string protectedArgument(const std::string& argument) {
    if (!argument.starts_with('"')) return argument;
    std::string enclosed = joinArguments({' ' + argument});
    enclosed.erase(1, 1); // the blank
    return enclosed;
}

} // namespace

Command shellCommand(const std::string& line) {
    std::string path = environmentText(L"ComSpec");
    if (path.empty()) path = findProgram("cmd.exe");
    // With /s it drops the outer quotes and takes what is between as it is.
    return {path, {"cmd.exe", "/d", "/s", "/c", '"' + line + '"'}};
}

Command programCommand(const std::vector<std::string>& arguments) {
    Command command{findProgram(arguments.front()), {}};
    for (const std::string& argument : arguments) command.arguments.push_back(protectedArgument(argument));
    return command;
}

} // namespace kiv::platform
