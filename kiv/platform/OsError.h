#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <string>

namespace kiv::platform {

// What the system says about one of its error numbers: UTF-8 in the user's language, one line without a line end.
KIV_API std::string systemErrorText(int32_t error);

} // namespace kiv::platform
