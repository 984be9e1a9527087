#pragma once

#include "kiv/script/Engine.h"

#include <cassert>

namespace kivSq {

// Restores the height of an engine stack at the end of a scope: every entry from native code into the engine has one,
// so that what failed in between leaves nothing behind. Main thread.
class StackGuard {
public:
    explicit StackGuard(SQVM* v) : m_vm(v), m_top(sq_gettop(v)) {}
    StackGuard(const StackGuard&) = delete;
    StackGuard& operator=(const StackGuard&) = delete;
    ~StackGuard() {
        assert(sq_gettop(m_vm) >= m_top && "somebody has taken more from the engine's stack than was his");
        sq_settop(m_vm, m_top);
    }

private:
    SQVM* const m_vm;
    const SQInteger m_top;
};

} // namespace kivSq
