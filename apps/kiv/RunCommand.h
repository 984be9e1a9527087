#pragma once

#include "Command.h"

#include <string>
#include <vector>

namespace kiv::app {

// kiv run: runs a script, with the main pump, until the last of its threads has ended.
struct RunCommand final : Command {
    std::string script;
    std::vector<std::string> arguments;

    void describe(CLI::App& app) override;
    // What follows the script's name is for the script, whatever it looks like.
    void takeArguments(std::vector<std::string>& given) override;
    // The exit status: the integer the script returns, 1 when it fails or does not compile, 130 when it is interrupted.
    int run() const override;
};

} // namespace kiv::app
