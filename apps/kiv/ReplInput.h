#pragma once

#include <string_view>

namespace kiv::app {

// Whether a script text goes on in the next line: a bracket, a comment or a verbatim text is open, or the last line
// ends with an operator that wants something behind it.
bool isIncomplete(std::string_view source);

} // namespace kiv::app
