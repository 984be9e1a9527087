// A host application: keeps the device's worker process alive, asks it for a study, and measures, keeps and checks what
// it sends.

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
    Host::Options host;
    bool isChaotic = false;
    unsigned kills = 3;
    std::optional<uint64_t> seed;
    std::string tracePath;
    std::vector<std::string> deviceArguments;
};

void describe(CLI::App& app, Options& options) {
    options.host.folder.describe(app);
    app.add_option("--worker", options.host.workerPath, "The device's program (acquire, beside this one)")
        ->type_name("PROGRAM");
    app.add_option("--report", options.host.reportPath, "The script that sums the study up (report.sq, beside this)")
        ->type_name("SCRIPT");
    app.add_flag("--chaos", options.isChaotic, "Kill the worker at random moments");
    app.add_option("--kills", options.kills, "How many times")->check(CLI::Range(1, 1000))->capture_default_str();
    app.add_option("--seed", options.seed, "Of the random moments (another one each time)");
    app.add_option("--trace", options.tracePath, "Write what happened when, as Chrome trace events")->type_name("FILE");
    app.add_option("arguments", options.deviceArguments, "For the worker, behind --");
}

// A file beside this program. Programs have this one's extension.
std::string findBeside(const char* name) {
    const std::string own = kiv::platform::programPath();
    const std::filesystem::path self(std::u8string(own.begin(), own.end()));
    std::filesystem::path path = std::filesystem::path(self).replace_filename(name);
    if (!path.has_extension()) path.replace_extension(self.extension());
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

void complete(Options& options) {
    if (options.host.workerPath.empty()) options.host.workerPath = findBeside("acquire");
    if (options.host.reportPath.empty()) options.host.reportPath = findBeside("report.sq");
    options.host.workerArguments = {options.host.workerPath.c_str(), "--worker"};
    for (const std::string& argument : options.deviceArguments) options.host.workerArguments.emplace_back(argument);
    options.host.kills = options.isChaotic ? options.kills : 0;
    options.host.seed = options.seed ? *options.seed : kiv::Random::current().randomUInt();
}

int host(const Options& options) {
    kiv::logging::LogBackend::registerBackend(true); // the log goes into the store
    if (!options.tracePath.empty()) kiv::Trace::start();
    kiv::Trace::setThreadName("main");
    kiv::System::initialize();
    int status = 1;
    {
        const auto application = kiv::makeObject<Host>(options.host);
        application->run();
        kiv::System::deinitialize();
        status = application->finish();
    }
    if (!options.tracePath.empty() && !kiv::Trace::writeTo(options.tracePath)) status = 1;
    return status;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Has a device's worker process acquire a study, and keeps it: host [OPTIONS] [-- ARGUMENTS]", "host");
    Options options;
    describe(app, options);
    if (const std::optional<int> status = readCommandLine(app, argc, argv)) return *status;
    complete(options);
    return host(options);
}
