#pragma once

#include "kiv/platform/ChildProcess.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace kiv::platform {

// A child's start in the system's terms. `streams` become its standard streams; they are above 2 and close themselves
// in programs that are started.
struct LaunchPlan {
    LaunchPlan(const ChildStart& start, const int (&childStreams)[3]);
    LaunchPlan(const LaunchPlan&) = delete;
    LaunchPlan& operator=(const LaunchPlan&) = delete;

    std::string path;
    std::vector<std::string> texts;
    std::vector<char*> arguments; // into `texts`, null at the end
    const char* workingDirectory;
    int streams[3];
};

// 0, or the system's error.
int launchChild(const LaunchPlan& plan, pid_t& child);

// The same for a child that the system kills when this program ends.
int launchBoundChild(const LaunchPlan& plan, pid_t& child);

} // namespace kiv::platform
