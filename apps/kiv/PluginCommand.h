#pragma once

#include "Command.h"

#include <string>

namespace kiv::app {

// kiv plugin new: writes a plug-in to begin with.
struct PluginCommand final : Command {
    std::string name;
    std::string plugins = "Plugins"; // the directory of plug-ins; made when it is not there

    void describe(CLI::App& app) override;
    // The exit status: 1 when the name is none of a plug-in, there is something of that name, or it can't be written.
    int run() const override;
};

} // namespace kiv::app
