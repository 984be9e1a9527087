#pragma once

#include <string>

namespace kiv::app {

// kiv worker: the worker of kiv host, for a parent that speaks packets.
struct WorkerCommand {
    std::string plugins; // the directory

    // The exit status: 0, also when the parent has died.
    int run() const;
};

} // namespace kiv::app
