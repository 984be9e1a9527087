#include "CommandLine.h"

#include "kiv/platform/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>

std::optional<int> readCommandLine(CLI::App& app, int argc, char** argv) {
    try {
        std::vector<std::string> arguments = kiv::platform::commandLineArguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return std::nullopt;
}
