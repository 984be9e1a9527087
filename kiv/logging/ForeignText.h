#pragma once

#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"

#include <string_view>

namespace kiv::logging {

// Text from outside as it may stand in a message: one line of valid UTF-8, in which nothing hides the message from the
// console or sends it to the support channel. A text without control codes stays as it is; else these, and backslashes,
// are escaped.
KIV_API String foreignText(std::string_view text);

} // namespace kiv::logging
