#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <string>
#include <vector>

// The processes of this machine, as far as they can be seen.

namespace kiv::platform {

struct RunningProcess {
    int64_t id;
    std::string name; // of the program's file without its folder, UTF-8
};

// Without those that have no name, as of processes that are just being made.
KIV_API std::vector<RunningProcess> listProcesses();
// As file names are compared.
KIV_API bool isSameProgram(const std::string& name, const std::string& other);
KIV_API int64_t getCurrentProcessId();
// False for one that has ended and is only waited for.
KIV_API bool isProcessRunning(int64_t id);
// Ends the process if it still is the one that was listed. Does not wait for its end; false when the system refuses.
KIV_API bool killProcess(const RunningProcess& process);

} // namespace kiv::platform
