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
        Object result;
        tryCall(result, arguments...);
        return result;
    }

    // The same for those who tell a failure, false, from the result null.
    template <class... Arguments>
    bool tryCall(Object& result, const Arguments&... arguments) const {
        result = {};
        static_assert(sizeof...(Arguments) <= 8, "the engine has room for eight; pass a table or an array");
        SQVM* v = internal::currentEngine();
        if (!v) return false;
        const StackGuard guard(v);
        m_closure.push(v);
        m_environment.push(v);
        const bool isPushed = (Access<std::decay_t<Arguments>>::push(v, arguments) && ...);
        if (!isPushed) {
            internal::logFailedConversion(v);
            return false;
        }
        if (!internal::callTop(v, static_cast<SQInteger>(sizeof...(Arguments)) + 1, true)) return false;
        result = Object(v, -1);
        return true;
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
