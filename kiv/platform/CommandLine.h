#pragma once

#include "kiv/platform/Compiler.h"

#include <string>
#include <vector>

namespace kiv::platform {

// The arguments of the program in UTF-8, without its name. Takes main()'s parameters; systems whose narrow arguments
// lose characters ask for the wide ones instead and ignore them.
KIV_API std::vector<std::string> commandLineArguments(int count, char** arguments);

} // namespace kiv::platform
