#include "PluginCommand.h"

#include "Text.h"

#include "kiv/core/String.h"
#include "kiv/files/Directory.h"
#include "kiv/platform/Console.h"
#include "kiv/platform/FileSystem.h"
#include "kiv/plugins/Plugins.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace kiv::app {

namespace {

constexpr int failed = 1;

struct File {
    const char* name; // @ is the plug-in's name, here and in the text
    const char* text;
};

constexpr File files[] = {
    {"autoexec.sq", R"(// Run at once when the plug-ins are booted, before the main.sq of any of them. It can't sleep.

// What others are to find stands in a table of the plug-in's name.
util["@"] <- {}

// Runs @_greeting.sq. All plug-ins share the names of their modules, so they begin with the plug-in's.
import("@_greeting")

// The application's events: "booted", "tick" in each pass of its main pump, "shutdown".
import("kiv.System")
kiv.System.getPlugins().addListener("shutdown", function(nothing) {
    std.info("@: bye")
})
)"},
    {"main.sq", R"(// A script thread, started when the autoexec.sq of all plug-ins have run. It may sleep.
std.info("@: " + util["@"].greet("world"))

// Nothing else runs on the main thread meanwhile, so long work sleeps, or yields, in between.
for (local step = 1; step <= 3; ++step) {
    std.sleep(100)
    std.info("@: step " + step)
}
)"},
    {"@_greeting.sq", R"(// A module: run once, by the first import("@_greeting").
util["@"].greet <- function(whom) {
    return "hello, " + whom
}
)"}};

int fail(const std::string& why) {
    internal::writeStandardError(fmt::format("kiv plugin: {}\n", withoutControls(why)));
    return failed;
}

} // namespace

void PluginCommand::describe(CLI::App& app) {
    app.require_subcommand(1);
    CLI::App& make = *app.add_subcommand("new", "Writes a plug-in that boots, with comments on what is what");
    make.add_option("NAME", name, "Its name, and that of its directory")->required();
    make.add_option("-p,--plugins", plugins, "The directory of plug-ins, made when it is not there")
        ->type_name("DIR")
        ->capture_default_str();
    app.footer("The exit status is 1 when the name is none that a plug-in can have, when there is something of that\n"
               "name, or when it can't be written.\n"
               "    kiv plugin new camera --plugins plugins");
}

int PluginCommand::run() const {
    // Modules have no ".." in their names.
    if (!Plugins::isPluginName(name) || name.find("..") != name.npos)
        return fail(name + ": no name of a plug-in: without separators, control characters and the like");
    const String directory = Directory::join(plugins, name);
    const platform::FileInfo there = platform::fileInfo(std::string(directory.view()));
    if (there.kind != platform::FileKind::None || there.isLink)
        return fail(fmt::format("{}: there is something already", directory.view()));
    if (!Directory::create(directory)) return fail(fmt::format("{}: can't be made", directory.view()));
    std::string names;
    for (const File& file : files) {
        const String fileName = String(file.name).replace_all("@", name.c_str());
        const String path = Directory::join(directory, fileName);
        if (!String(file.text).replace_all("@", name.c_str()).saveToFile(path)) {
            Directory::removeTree(directory);
            return fail(fmt::format("{}/{}: can't be written", directory.view(), fileName.view()));
        }
        names += (names.empty() ? "" : ", ") + std::string(fileName.view());
    }
    internal::writeStandardOutput(fmt::format("plug-in made: {} ({})\nkiv host --plugins {} boots it\n",
                                              withoutControls(directory.view()), names, withoutControls(plugins)));
    return 0;
}

} // namespace kiv::app
