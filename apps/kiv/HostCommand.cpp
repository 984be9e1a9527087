#include "HostCommand.h"

#include "Text.h"

#include "kiv/logging/LogText.h"
#include "kiv/logging/Trace.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/platform/Console.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/system/PluginHost.h"
#include "kiv/system/System.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <chrono>
#include <filesystem>

namespace kiv::app {

namespace {

constexpr int failed = 1;

std::filesystem::path pathOf(const std::string& utf8) {
    return std::u8string(utf8.begin(), utf8.end());
}

std::string absolute(const std::string& path) {
    std::error_code error;
    const std::u8string text = std::filesystem::absolute(pathOf(path), error).u8string();
    return {text.begin(), text.end()};
}

int fail(const std::string& why) {
    internal::writeStandardError(fmt::format("kiv host: {}\n", withoutControls(why)));
    return failed;
}

// The reason why it can't be begun.
std::string findFault(const HostCommand& command) {
    std::error_code error;
    if (!std::filesystem::is_directory(pathOf(command.plugins), error)) return command.plugins + ": no directory";
    if (!command.worker.empty() && !std::filesystem::is_regular_file(pathOf(command.worker), error))
        return command.worker + ": no file";
    // Else the first change of an option would tell.
    const std::filesystem::path store = pathOf(command.store);
    if (store.has_parent_path() && !std::filesystem::is_directory(store.parent_path(), error))
        return command.store + ": no directory for it";
    for (const std::string& setting : command.settings)
        if (setting.find('=') == setting.npos) return setting + ": an option is set by name=value";
    return {};
}

PluginHost::Settings readSettings(const HostCommand& command) {
    PluginHost::Settings settings;
    settings.pluginsDirectory = absolute(command.plugins);
    settings.storePath = command.store;
    settings.isChild = command.isChild;
    settings.workers = 1;
    settings.workerPath = command.worker.empty() ? platform::programPath() : absolute(command.worker);
    settings.workerArguments.push_back(settings.workerPath);
    if (command.worker.empty()) settings.workerArguments.push_back("worker");
    settings.workerArguments.push_back("--plugins");
    settings.workerArguments.push_back(settings.pluginsDirectory);
    for (const std::string& setting : command.settings) {
        const size_t end = setting.find('=');
        settings.options.push_back({setting.substr(0, end), setting.substr(end + 1)});
    }
    if (command.workers) settings.options.push_back({"host:workers", std::to_string(*command.workers)});
    return settings;
}

std::string summarise(PluginHost& host, size_t plugins, double seconds) {
    return fmt::format("kiv host: {}, after {:.1f} s with {} plug-in{}; {} worker start{}\n",
                       withoutControls(host.getEndText()), seconds, plugins, plugins == 1 ? "" : "s",
                       host.getWorkerStarts(), host.getWorkerStarts() == 1 ? "" : "s");
}

int runHost(const HostCommand& command) {
    const auto begin = std::chrono::steady_clock::now();
    System::initialize();
    int status = failed;
    std::string summary;
    {
        const auto host = makeObject<PluginHost>(readSettings(command));
        const bool isStarted = host->start();
        const size_t plugins = host->getPlugins().getBooted().size();
        const bool isGood = isStarted && host->run();
        System::deinitialize();
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        if (isGood)
            summary = summarise(*host, plugins, time.count());
        else
            fail(isStarted ? command.store + ": can't be written" : "not started");
        if (isGood) status = 0;
    }
    internal::writeStandardOutput(summary);
    return status;
}

} // namespace

void HostCommand::describe(CLI::App& app) {
    app.add_option("-p,--plugins", plugins, "The directory that the plug-ins are directories of")
        ->type_name("DIR")
        ->required();
    app.add_option("-s,--store", store, "Where options are kept; made when it is not there")->type_name("FILE");
    app.add_option("-w,--worker", worker, "The workers' program (this one)")->type_name("PATH");
    app.add_option("-n,--workers", workers, "How many, from now on: the option host:workers (1 at first)")
        ->type_name("N")
        ->check(CLI::Range(0, 64).description(""));
    app.add_option("--set", settings, "Gives an option this value, from now on; may be repeated")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    app.add_option("--trace", trace, "Write what happened when, as Chrome trace events")->type_name("FILE");
    app.add_flag("--child", isChild, "Standard input is the pipe of a parent that speaks packets");
    app.footer(
        "Boots the plug-ins, first autoexec.sq of all, then main.sq of all, keeps the workers running, which boot the\n"
        "same plug-ins, and runs until it is interrupted, a script calls host.end(why) or, with --child, the parent\n"
        "asks it to end or is gone. It then asks the workers to end, gives them five seconds, and writes the store; a\n"
        "second interrupt ends it at once. The store is also written when an option changes; whenever this program is\n"
        "killed the file is the old or the new one. Plug-ins are code with all rights of the user who starts this.\n"
        "A program of --worker is started with --plugins DIR, and is told by packets what to boot.\n"
        "The exit status is 0 when it has ended in good order, after an interrupt as well, 1 when the store can't be\n"
        "read or written, an option is unknown or a path wrong, 2 for wrong usage.\n"
        "    kiv host --plugins plugins --store settings.store --set host:workers=2");
}

int HostCommand::run() const {
    if (const std::string fault = findFault(*this); !fault.empty()) return fail(fault);
    if (!trace.empty()) Trace::start();
    Trace::setThreadName("main");
    const int status = runHost(*this);
    if (trace.empty() || Trace::writeTo(trace)) return status;
    return fail(trace + ": can't be written");
}

} // namespace kiv::app
