#pragma once

#include <string_view>

namespace kiv::internal {

// The system's part of writeStandardOutput: what reaches the C library's stream, under its lock.
bool writeToStandardOutput(std::string_view text);

} // namespace kiv::internal
