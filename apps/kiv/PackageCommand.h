#pragma once

#include <string>

namespace kiv::app {

enum class PackageAction { Create, Verify, Unpack, Key };

// kiv package: makes product packages, and the keys they are signed with, and reads them.
struct PackageCommand {
    PackageAction action = PackageAction::Verify;
    std::string file;   // the package; of keys the name without ".secret" and ".public"
    std::string folder; // to pack, resp. to make
    std::string key;    // a key's file
    std::string product;
    std::string version;

    // The exit status: 1 when it could not be done, or the package is not right.
    int run() const;
};

} // namespace kiv::app
