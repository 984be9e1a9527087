#pragma once

#include <string_view>

namespace kiv::internal {

// Writes lines, the last with its line feed too, to standard output in one piece. A line that begins like a packet gets
// a blank in front: a process that reads our output would take it for one.
void printLines(std::string_view lines);

} // namespace kiv::internal
