#pragma once

#include <optional>

namespace CLI {
class App;
}

// Fills in what the app describes. The exit status when the program ends here: help was asked for, or arguments are
// wrong, and either was printed.
std::optional<int> readCommandLine(CLI::App& app, int argc, char** argv);
