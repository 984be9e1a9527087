#include "HostCommand.h"
#include "ItemCommand.h"
#include "PackageCommand.h"
#include "PacketsCommand.h"
#include "PluginCommand.h"
#include "ReplCommand.h"
#include "RunCommand.h"
#include "StoreCommand.h"
#include "WorkerCommand.h"

#include "kiv/platform/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace {

using namespace kiv::app;

constexpr int wrongUsage = 2;

struct Entry {
    const char* name;
    const char* purpose;
    std::unique_ptr<Command> command;
    CLI::App* app = nullptr;
};

// The parser takes "[1,2]" apart, as if a configuration file had said it; a blank in front prevents that. It is taken
// away before the option sees it.
void protectBrackets(std::vector<std::string>& arguments) {
    for (std::string& argument : arguments)
        if (argument.starts_with('[')) argument.insert(0, 1, ' ');
}
std::string unprotectBracket(std::string& argument) {
    if (argument.starts_with(" [")) argument.erase(0, 1);
    return {};
}
void unprotectBrackets(CLI::App& app) {
    for (CLI::Option* option : app.get_options()) option->transform(CLI::Validator(unprotectBracket, ""));
    for (CLI::App* sub : app.get_subcommands(nullptr)) unprotectBrackets(*sub);
}

} // namespace

int main(int argc, char** argv) {
    Entry entries[] = {
        {"item", "Turns JSON, base16 and base64 forms of items into each other", std::make_unique<ItemCommand>()},
        {"packets", "Lists the records of a packet file", std::make_unique<PacketsCommand>()},
        {"store", "Looks into store files and changes them", std::make_unique<StoreCommand>()},
        {"run", "Runs a script", std::make_unique<RunCommand>()},
        {"repl", "A prompt for scripts", std::make_unique<ReplCommand>()},
        {"plugin", "Makes plug-ins", std::make_unique<PluginCommand>()},
        {"package", "Makes and unpacks product packages", std::make_unique<PackageCommand>()},
        {"host", "Runs plug-ins, with options and worker processes", std::make_unique<HostCommand>()},
        {"worker", "What kiv host starts", std::make_unique<WorkerCommand>()},
    };
    CLI::App app("Looks into the data of kivCore, and runs scripts.", "kiv");
    app.require_subcommand(1);
    for (Entry& entry : entries) {
        entry.app = app.add_subcommand(entry.name, entry.purpose);
        entry.command->describe(*entry.app);
    }
    unprotectBrackets(app);
    try {
        std::vector<std::string> arguments = kiv::platform::commandLineArguments(argc, argv);
        for (Entry& entry : entries)
            if (!arguments.empty() && arguments[0] == entry.name) entry.command->takeArguments(arguments);
        protectBrackets(arguments);
        std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : wrongUsage;
    }
    for (const Entry& entry : entries)
        if (entry.app->parsed()) return entry.command->run();
    return wrongUsage;
}
