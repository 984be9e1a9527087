#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <string>
#include <string_view>

// Source texts on their way to the engine's compiler.

namespace kivSq::internal {

// Null, or why a source text must not reach the compiler, which follows its nesting on the stack.
KIV_API const char* refuseSource(const char* source, size_t length);
// What follows a byte order mark, which the compiler takes for code.
std::string_view withoutMark(std::string_view source);
// The same source, in the same lines, with a call of a function of the root table in the condition of each loop but
// those of foreach.
std::string withWatchedLoops(std::string_view source, const char* function);

} // namespace kivSq::internal
