#pragma once

#include "Command.h"

namespace kiv::app {

// kiv repl: a prompt for scripts. Each input runs as a script thread, and the main pump goes on while the user types.
struct ReplCommand final : Command {
    void describe(CLI::App& app) override;
    // The exit status: 1 when standard input is no terminal and an input has failed.
    int run() const override;
};

} // namespace kiv::app
