#include "kiv/script/HostCall.h"

#include "kiv/script/StackGuard.h"
#include "kiv/script/VMOutput.h"
#include "kiv/script/Watchdog.h"

#include <cstdint>

namespace kivSq::internal {
namespace {

uint64_t g_handledErrors = 0;

} // namespace

void countHandledError() {
    ++g_handledErrors;
}

bool callTop(SQVM* v, SQInteger params, bool wantsResult) {
    const WatchedGo go;
    const uint64_t before = g_handledErrors;
    if (SQ_SUCCEEDED(sq_call(v, params, wantsResult ? SQTrue : SQFalse, SQTrue))) return true;
    // Natives that fail at the bottom of a call don't come to the handler.
    if (g_handledErrors == before) logNativeFailure(v);
    return false;
}

Object callScript(SQVM* v, const Object& callee, const Object& environment) {
    const StackGuard guard(v);
    callee.push(v);
    environment.push(v);
    return callTop(v, 1, true) ? Object(v, -1) : Object();
}

} // namespace kivSq::internal
