#pragma once

#include "kiv/platform/Compiler.h"

#include <string>
#include <vector>

namespace kiv::platform {

// What a child process is started with, see ChildStart. An empty path: there is no such program.
struct Command {
    std::string path;
    std::vector<std::string> arguments;
};

// The system's shell, which gets a line of commands as it is.
KIV_API Command shellCommand(const std::string& line);

// A program with its name as the first argument. A name without folder is looked for where the system's shell looks.
// The program finds each argument as it stands here. Requires: at least one.
KIV_API Command programCommand(const std::vector<std::string>& arguments);

} // namespace kiv::platform
