#pragma once

#include "kiv/script/Call.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/VM.h"

#include <stdexcept>

namespace kivSq::internal {

// A VM that is destroyed inside a script leaves the script running.
inline VM& requireVM() {
    VM* vm = VM::current();
    if (!vm) throw std::runtime_error("there is no VM");
    return *vm;
}

// Enters a function that works on the engine's stack: its arguments are from slot 2 on, `this` is in slot 1. With a
// negative count there are at least that many, `this` included.
template <SQInteger (*function)(SQVM*)>
void addNative(SQVM* v, const Object& table, const char* name, SQInteger count) {
    const StackGuard guard(v);
    sq_newclosure(v, &callNative<function>, 0);
    sq_setparamscheck(v, count, nullptr);
    sq_setnativeclosurename(v, -1, name);
    table.set(name, Object(v, -1));
}

} // namespace kivSq::internal
