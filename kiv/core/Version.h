#pragma once

#include "kiv/platform/Compiler.h"

namespace kiv {

// Of the library that is loaded: "0.1.0".
KIV_API const char* getVersion();

} // namespace kiv
