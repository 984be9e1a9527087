#include "kiv/platform/CommandLine.h"

#include <filesystem>

namespace kiv::platform {

std::vector<std::string> commandLineArguments(int count, char** arguments) {
    return count > 1 ? std::vector<std::string>(arguments + 1, arguments + count) : std::vector<std::string>();
}

std::string programPath() {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).string();
}

} // namespace kiv::platform
