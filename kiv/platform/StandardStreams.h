#pragma once

#include <cstddef>
#include <string_view>

namespace kiv::internal {

// The system's part of writeStandardOutput: what reaches the C library's stream, under its lock.
bool writeToStandardOutput(std::string_view text);

// The system's part of readStandardInput.
size_t readFromStandardInput(char* to, size_t size);

} // namespace kiv::internal
