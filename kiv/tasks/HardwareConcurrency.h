#pragma once

#include "kiv/platform/Compiler.h"

namespace kiv {

// The number of threads this machine runs at once, at least 1. Asked of the system once.
KIV_API unsigned getHardwareConcurrency();

} // namespace kiv
