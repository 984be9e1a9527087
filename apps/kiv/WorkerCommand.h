#pragma once

#include "Command.h"

#include <string>

namespace kiv::app {

// kiv worker: the worker of kiv host, for a parent that speaks packets.
struct WorkerCommand final : Command {
    std::string plugins; // the directory

    void describe(CLI::App& app) override;
    // The exit status: 0, also when the parent has died.
    int run() const override;
};

} // namespace kiv::app
