#pragma once

#include <string>
#include <vector>

namespace kiv::app {

// kiv run: runs a script, with the main pump, until the last of its threads has ended.
struct RunCommand {
    std::string script;
    std::vector<std::string> arguments;

    // The exit status: the integer the script returns, 1 when it fails or does not compile, 130 when it is interrupted.
    int run() const;
};

} // namespace kiv::app
