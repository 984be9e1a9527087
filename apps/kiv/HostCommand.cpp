#include "HostCommand.h"

#include "Text.h"

#include "kiv/logging/LogText.h"
#include "kiv/logging/Trace.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/platform/Console.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/system/PluginHost.h"
#include "kiv/system/System.h"

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

int HostCommand::run() const {
    if (const std::string fault = findFault(*this); !fault.empty()) return fail(fault);
    if (!trace.empty()) Trace::start();
    Trace::setThreadName("main");
    const int status = runHost(*this);
    if (trace.empty() || Trace::writeTo(trace)) return status;
    return fail(trace + ": can't be written");
}

} // namespace kiv::app
