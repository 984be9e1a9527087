#pragma once

#include "Command.h"

#include <string>

namespace kiv::app {

// kiv package: makes product packages, and the keys they are signed with, and reads them.
struct PackageCommand final : Command {
    int (*action)(const PackageCommand&) = nullptr;
    std::string file;   // the package; of keys the name without ".secret" and ".public"
    std::string folder; // to pack, resp. to make
    std::string key;    // a key's file
    std::string product;
    std::string version;

    void describe(CLI::App& app) override;
    // The exit status: 1 when it could not be done, or the package is not right.
    int run() const override;
};

} // namespace kiv::app
