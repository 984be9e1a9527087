#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/script/Access.h"
#include "kiv/script/HostCall.h"

namespace kivSq {

// A script function with the `this` it is called with, for native code to call. Main thread.
// Failures: a call that fails, or of no function, is logged and gives null.
class KIV_API Functor {
public:
    Functor() = default;
    // Null as environment: the root table.
    explicit Functor(const Object& closure, const Object& environment = {});

    explicit operator bool() const { return m_closure.isClosure() || m_closure.isNativeClosure(); }
    const Object& getClosure() const { return m_closure; }
    const Object& getEnvironment() const { return m_environment; }

    template <class... Arguments>
    Object call(const Arguments&... arguments) const {
        static_assert(sizeof...(Arguments) <= 8, "the engine has room for eight; pass a table or an array");
        SQVM* v = internal::currentEngine();
        if (!v) return {};
        const StackGuard guard(v);
        m_closure.push(v);
        m_environment.push(v);
        const bool isPushed = (Access<std::decay_t<Arguments>>::push(v, arguments) && ...);
        if (!isPushed) {
            internal::logFailedConversion(v);
            return {};
        }
        return internal::callTop(v, static_cast<SQInteger>(sizeof...(Arguments)) + 1, true) ? Object(v, -1) : Object();
    }

private:
    Object m_closure;
    Object m_environment;
};

// Script functions as arguments of native ones.
template <>
struct Access<Functor> {
    static bool get(SQVM* v, int64_t index, Functor& out) {
        Functor functor(Object(v, index));
        if (!functor) return false;
        out = functor;
        return true;
    }
    static bool push(SQVM* v, const Functor& value) {
        value.getClosure().push(v);
        return true;
    }
    static const char* name() { return "function"; }
};

} // namespace kivSq
