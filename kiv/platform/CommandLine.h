#pragma once

#include "kiv/platform/Compiler.h"

#include <string>
#include <vector>

namespace kiv::platform {

// The arguments of the program in UTF-8, without its name. Takes main()'s parameters; systems whose narrow arguments
// lose characters ask for the wide ones instead and ignore them.
KIV_API std::vector<std::string> commandLineArguments(int count, char** arguments);

// The absolute path of the program that runs, in UTF-8: beside it are the programs it belongs with. Empty where the
// system does not tell.
KIV_API std::string programPath();

} // namespace kiv::platform
