#include "kiv/platform/CommandLine.h"

namespace kiv::platform {

std::vector<std::string> commandLineArguments(int count, char** arguments) {
    return count > 1 ? std::vector<std::string>(arguments + 1, arguments + count) : std::vector<std::string>();
}

} // namespace kiv::platform
