#include "kiv/platform/Shell.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace kiv::platform {
namespace {

bool isProgram(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const char* const folders = std::getenv("PATH");
    std::istringstream rest(folders ? folders : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(rest, folder, ':');) {
        std::string path = (folder.empty() ? "." : folder) + '/' + name;
        if (!name.empty() && isProgram(path)) return path;
    }
    return {};
}

} // namespace

Command shellCommand(const std::string& line) {
    return {"/bin/sh", {"sh", "-c", line}};
}

Command programCommand(const std::vector<std::string>& arguments) {
    return {findProgram(arguments.front()), arguments};
}

} // namespace kiv::platform
