#pragma once

#include "Command.h"

#include <optional>
#include <string>
#include <vector>

namespace kiv::app {

// kiv host: an application of plug-ins, with options in a store and supervised workers.
struct HostCommand final : Command {
    std::string plugins;               // the directory
    std::string store;                 // the file; empty: nothing is kept
    std::string worker;                // the program; empty: this one
    std::string trace;                 // the file; empty: none
    std::vector<std::string> settings; // "name=value"
    std::optional<unsigned> workers;
    bool isChild = false; // of a parent that speaks packets

    void describe(CLI::App& app) override;
    // The exit status: 0 when it was asked to end, by an interrupt, its parent or a script, and has ended in good
    // order; else 1.
    int run() const override;
};

} // namespace kiv::app
