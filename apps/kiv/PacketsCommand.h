#pragma once

#include <string>

namespace kiv::app {

// kiv packets: lists the records of a packet file.
struct PacketsCommand {
    std::string file;
    unsigned preview = 16; // bytes of each payload that are shown

    // The exit status: 1 when the file can't be read or is damaged.
    int run() const;
};

} // namespace kiv::app
