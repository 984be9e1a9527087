#pragma once

#include "kiv/platform/Compiler.h"

namespace kiv::platform {

// "linux" or "windows".
KIV_API const char* systemName();

} // namespace kiv::platform
