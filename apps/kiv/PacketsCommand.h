#pragma once

#include "Command.h"

#include <string>

namespace kiv::app {

// kiv packets: lists the records of a packet file.
struct PacketsCommand final : Command {
    std::string file;
    unsigned preview = 16; // bytes of each payload that are shown

    void describe(CLI::App& app) override;
    // The exit status: 1 when the file can't be read or is damaged.
    int run() const override;
};

} // namespace kiv::app
