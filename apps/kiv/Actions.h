#pragma once

#include <CLI/CLI.hpp>

namespace kiv::app {

// Adds a subcommand to a command that does one of several things: runs `action`, which is also C's member.
template <class C>
CLI::App& addAction(CLI::App& app, C& command, int (*action)(const C&), const char* name, const char* description) {
    CLI::App& sub = *app.add_subcommand(name, description);
    sub.final_callback([&command, action] { command.action = action; });
    return sub;
}

} // namespace kiv::app
