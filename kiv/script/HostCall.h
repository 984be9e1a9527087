#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/script/Object.h"

// Calls from native code into scripts.

namespace kivSq::internal {

// Calls what lies below `params` parameters at the top, as sq_call does. A failure is logged, by the error handler or
// here, where the engine does not tell it. Requires: a StackGuard around it.
KIV_API bool callTop(SQVM* v, SQInteger params, bool wantsResult);
// Calls a value with `environment` as `this`; null when it fails.
Object callScript(SQVM* v, const Object& callee, const Object& environment);
// The error handler has been called.
void countHandledError();

} // namespace kivSq::internal
