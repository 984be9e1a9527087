#pragma once

#include "Command.h"
#include "ItemForms.h"

#include <string>
#include <vector>

namespace kiv::app {

// kiv item: turns the text forms of items into each other.
struct ItemCommand final : Command {
    std::vector<std::string> texts;
    std::vector<std::string> files; // "-" is standard input, and so is having neither texts nor files
    bool linewise = false;          // every line of a file is an input of its own
    ItemForm from = ItemForm::JSON; // Debug and Path can't be read
    ItemForm to = ItemForm::JSON;

    void describe(CLI::App& app) override;
    // The exit status: 1 when any input was refused.
    int run() const override;
};

} // namespace kiv::app
