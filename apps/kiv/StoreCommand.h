#pragma once

#include "Command.h"
#include "ItemForms.h"

#include <limits>
#include <string>
#include <vector>

namespace kiv::app {

// kiv store: looks into store files and changes them. Keys are JSON arrays of their elements, or a text.
struct StoreCommand final : Command {
    int (*action)(const StoreCommand&) = nullptr; // one of StoreActions.h
    std::string file;
    std::string secondFile; // to copy to, resp. to compare with
    std::string key = "[]";
    std::string value;
    std::vector<std::string> excluded;
    unsigned depth = std::numeric_limits<unsigned>::max(); // levels of the tree below the key
    ItemForm form = ItemForm::JSON;

    void describe(CLI::App& app) override;
    // The exit status: 1 when a file is damaged or can't be read or written, an entry is missing, or stores differ.
    int run() const override;
};

} // namespace kiv::app
