// A host application: keeps the device's worker process alive, has plug-ins ask it for a study, and measures, keeps and
// checks what it sends.

#include "Host.h"

#include "examples/study/CommandLine.h"

#include "kiv/core/Random.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/logging/Trace.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/system/System.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <optional>

namespace {

struct Options {
    StudyFolder::Options folder;
    std::string worker;
    std::string plugins;
    std::string store = "host.store";
    std::vector<std::string> values;
    bool isListing = false;
    bool isChaotic = false;
    unsigned kills = 3;
    std::optional<uint64_t> seed;
    std::string trace;
    std::vector<std::string> deviceArguments;
};

void describe(CLI::App& app, Options& options) {
    options.folder.describe(app);
    app.add_option("--store", options.store, "Where the options are kept")->type_name("FILE")->capture_default_str();
    app.add_option("--set", options.values, "Set an option, for this time and the next ones")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_flag("--options", options.isListing, "List the options, and do nothing else");
    app.add_option("--plugins", options.plugins, "The plug-ins (Plugins, beside this program)")->type_name("FOLDER");
    app.add_option("--worker", options.worker, "The device's program (acquire, beside this one)")->type_name("PROGRAM");
    app.add_flag("--chaos", options.isChaotic, "Kill the worker at random moments");
    app.add_option("--kills", options.kills, "How many times")->check(CLI::Range(1, 1000))->capture_default_str();
    app.add_option("--seed", options.seed, "Of the random moments (another one each time)");
    app.add_option("--trace", options.trace, "Write what happened when, as Chrome trace events")->type_name("FILE");
    app.add_option("arguments", options.deviceArguments, "For the worker, behind --");
}

std::filesystem::path pathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

kiv::String textOf(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

// A file beside this program. Programs have this one's extension.
std::filesystem::path findBeside(const char* name) {
    const std::filesystem::path self = pathOf(kiv::platform::programPath());
    return std::filesystem::path(self).replace_filename(name).replace_extension(self.extension());
}

Host::Options settle(const Options& options) {
    Host::Options settled;
    settled.folder = options.folder;
    kiv::PluginHost::Settings& settings = settled.settings;
    settings.storePath = options.store;
    settings.pluginsDirectory =
        options.plugins.empty() ? kiv::System::getPluginsDirectory() : textOf(absolute(pathOf(options.plugins)));
    settings.workerPath = textOf(options.worker.empty() ? findBeside("acquire") : absolute(pathOf(options.worker)));
    settings.workerArguments = {settings.workerPath, "--worker", "--plugins", settings.pluginsDirectory};
    for (const std::string& argument : options.deviceArguments) settings.workerArguments.emplace_back(argument);
    settings.workers = 1;
    if (options.isListing) settings.workerPath = {}; // which is never started
    for (const std::string& value : options.values) {
        const size_t sign = value.find('=');
        settings.options.push_back({value.substr(0, sign), sign == value.npos ? "" : value.substr(sign + 1)});
    }
    settled.kills = options.isChaotic ? options.kills : 0;
    settled.seed = options.seed ? *options.seed : kiv::Random::current().randomUInt();
    return settled;
}

int host(const Options& options) {
    kiv::logging::LogBackend::registerBackend(true); // the log goes into the store
    if (!options.trace.empty()) kiv::Trace::start();
    kiv::Trace::setThreadName("main");
    kiv::System::initialize();
    int status = 1;
    {
        const auto application = kiv::makeObject<Host>(settle(options));
        if (options.isListing)
            status = application->listOptions() ? 0 : 1;
        else
            application->acquire();
        kiv::System::deinitialize();
        if (!options.isListing) status = application->finish();
    }
    if (!options.trace.empty() && !kiv::Trace::writeTo(options.trace)) status = 1;
    return status;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Has a device's worker process acquire a study, and keeps it: host [OPTIONS] [-- ARGUMENTS]", "host");
    Options options;
    describe(app, options);
    if (const std::optional<int> status = readCommandLine(app, argc, argv)) return *status;
    return host(options);
}
