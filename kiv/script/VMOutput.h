#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"

#include <cstdarg>
#include <string>

// What the engine says, in the log.

namespace kivSq::internal {

// What the engine's print functions are given, as text.
KIV_API std::string formatText(const SQChar* format, va_list arguments);
// Print, error and compiler handlers of the whole engine.
void installOutput(SQVM* v);
// The runtime error handler, a native closure, on an engine VM or thread.
void installErrorHandler(SQVM* v);
// The call stack with the local variables of each level; at most 64 levels and 32 variables each, then "* ...". Locals
// are shown as they are, secrets too.
std::string callStackText(SQVM* v);
// For host calls of native closures, whose errors the engine does not tell the handler.
void logNativeFailure(SQVM* v);

} // namespace kivSq::internal
