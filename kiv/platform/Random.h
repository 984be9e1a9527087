#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>

namespace kiv::platform {

// Fills with bytes of the system's own source of randomness, which waits for nothing but the start of the system. False
// when there is none. Any thread.
KIV_API bool systemRandomBytes(void* to, size_t size);

} // namespace kiv::platform
