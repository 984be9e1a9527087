#include "kiv/platform/linux/ChildLaunch.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <spawn.h>
#include <system_error>
#include <unistd.h>

namespace kiv::platform {

namespace {

class FileActions {
public:
    FileActions() { ::posix_spawn_file_actions_init(&m_actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { ::posix_spawn_file_actions_destroy(&m_actions); }

    posix_spawn_file_actions_t* get() { return &m_actions; }

private:
    posix_spawn_file_actions_t m_actions;
};

class SpawnAttributes {
public:
    SpawnAttributes() {
        sigset_t none, all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_init(&m_attributes);
        // Signals that are ignored here would be ignored there: a child that goes on writing to nobody for one.
        ::posix_spawnattr_setsigmask(&m_attributes, &none);
        ::posix_spawnattr_setsigdefault(&m_attributes, &all);
        ::posix_spawnattr_setpgroup(&m_attributes, 0);
        ::posix_spawnattr_setflags(&m_attributes,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&m_attributes); }

    const posix_spawnattr_t* get() const { return &m_attributes; }

private:
    posix_spawnattr_t m_attributes;
};

// Quotes that enclose a whole argument are for systems where arguments are one text.
std::string withoutQuotes(const std::string& argument) {
    const bool isEnclosed = argument.size() >= 2 && argument.starts_with('"') && argument.ends_with('"');
    return isEnclosed ? argument.substr(1, argument.size() - 2) : argument;
}

} // namespace

LaunchPlan::LaunchPlan(const ChildStart& start, const int (&childStreams)[3])
    : path(start.path), workingDirectory(start.workingDirectory) {
    // Relative to the parent's folder, though the child is in its own when it looks for the program.
    if (workingDirectory && !path.starts_with('/')) {
        std::error_code failure;
        path = (std::filesystem::current_path(failure) / path).string();
    }
    for (const std::string& argument : start.arguments) texts.push_back(withoutQuotes(argument));
    for (std::string& text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    std::copy(std::begin(childStreams), std::end(childStreams), streams);
}

int launchChild(const LaunchPlan& plan, pid_t& child) {
    FileActions actions;
    const SpawnAttributes attributes;
    int error = 0;
    for (int i = 0; i < 3 && error == 0; ++i)
        error = ::posix_spawn_file_actions_adddup2(actions.get(), plan.streams[i], i);
    // Not all that a program opens is closed by itself in those that it starts.
    if (error == 0) error = ::posix_spawn_file_actions_addclosefrom_np(actions.get(), 3);
    if (plan.workingDirectory && error == 0)
        error = ::posix_spawn_file_actions_addchdir_np(actions.get(), plan.workingDirectory);
    if (error != 0) return error;
    return ::posix_spawn(&child, plan.path.c_str(), actions.get(), attributes.get(), plan.arguments.data(), environ);
}

} // namespace kiv::platform
