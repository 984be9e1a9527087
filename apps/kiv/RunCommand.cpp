#include "RunCommand.h"

#include "ScriptHost.h"
#include "Text.h"

#include "kiv/core/Buffer.h"
#include "kiv/script/Access.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace kiv::app {

namespace {

using kivSq::Object;

constexpr int failed = 1, interrupted = 130, greatestStatus = 255;

std::string folderOf(const std::string& path) {
    const std::u8string folder =
        std::filesystem::path(std::u8string(path.begin(), path.end())).parent_path().u8string();
    return folder.empty() ? "." : std::string(folder.begin(), folder.end());
}

int statusOf(const Object& result, bool isGood) {
    int64_t number = 0;
    if (!isGood) return failed;
    if (!result.isInteger() || !result.to(number)) return 0;
    if (number >= 0 && number <= greatestStatus) return static_cast<int>(number);
    internal::writeStandardError(fmt::format("kiv run: {} is no exit status\n", number));
    return failed;
}

} // namespace

void RunCommand::describe(CLI::App& app) {
    app.add_option("script", script, "The script's file")->type_name("SCRIPT")->required();
    app.footer(
        "What follows SCRIPT is for the script, which finds it in the array vargv. It runs as a script thread, until\n"
        "that and all it has started have ended. Modules to import are looked for beside it; the names of the "
        "engine's\n"
        "libraries are found at the root, too. What it prints goes to standard output, the log to standard error. The\n"
        "exit status is the integer that it returns, 1 when it fails or does not compile, 130 after an interrupt; a\n"
        "second interrupt ends a script that never pauses.");
}

void RunCommand::takeArguments(std::vector<std::string>& given) {
    const auto file = std::find_if(given.begin() + 1, given.end(),
                                   [](const std::string& argument) { return !argument.starts_with('-'); });
    if (file == given.end()) return;
    arguments.assign(file + 1, given.end());
    given.erase(file + 1, given.end());
}

int RunCommand::run() const {
    int status = failed; // outlives the threads
    ScriptHost host;
    Buffer source;
    if (!source.loadFromFile(script.c_str(), true)) {
        internal::writeStandardError(fmt::format("kiv run: {}: can't be read\n", withoutControls(script)));
        return failed;
    }
    kivSq::VM& vm = host.getVM();
    vm.addImportSearchPath(folderOf(script).c_str());
    const Vector<Object> values = host.setArguments(arguments);
    const Object closure =
        vm.newClosure(reinterpret_cast<const char*>(source.getBytePointer()), source.getSize(), script.c_str());
    if (!closure) return failed;
    vm.createThread(closure, values, [&](const Object& result, bool isGood) { status = statusOf(result, isGood); });
    while (vm.threadsActive()) {
        host.pump();
        if (System::getHitSIGINT()) return interrupted;
    }
    return status;
}

} // namespace kiv::app
