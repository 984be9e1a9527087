#pragma once

#include "kiv/script/Call.h"
#include "kiv/script/VM.h"

#include <stdexcept>

// Native functions of the root tables, entered by name. A plain one is known to its closure's type; a carried one is
// the user data of a closure that serves all of its signature. Either has converted arguments, or works on the engine's
// stack itself: its arguments are from slot 2 on, and nothing is above them. It may throw.
// Calls with another number of arguments are refused: "wrong number of parameters".

namespace kivSq::internal {

// A VM that is destroyed inside a script leaves the script running.
inline VM& orThrow(VM* vm) {
    if (!vm) throw std::runtime_error("there is no VM");
    return *vm;
}
inline VM& requireVM() {
    return orThrow(VM::current());
}
// That of an engine VM or thread.
inline VM& requireVM(SQVM* v) {
    return orThrow(static_cast<VM*>(sq_getsharedforeignptr(v)));
}

// How the engine counts the arguments of a native function: `this` is one more; a negative number asks for at least as
// many, 0 for any.
using ParameterCount = SQInteger;
template <class... Arguments>
constexpr ParameterCount parameterCount = static_cast<ParameterCount>(sizeof...(Arguments)) + 1;

template <auto function>
struct PlainCall;
template <class Result, class... Arguments, Result (*function)(Arguments...)>
struct PlainCall<function> {
    static constexpr ParameterCount count = parameterCount<Arguments...>;

    static SQInteger call(SQVM* v) noexcept {
        return guarded(
            v, [v] { return invoke<Result, Arguments...>(v, 2, function, std::index_sequence_for<Arguments...>()); });
    }
};

class NativeTable {
public:
    NativeTable(SQVM* v, Object table) : m_vm(v), m_table(std::move(table)) {}

    template <auto function>
    NativeTable& plain(const char* name) {
        return plain(name, &PlainCall<function>::call, PlainCall<function>::count);
    }
    template <SQInteger (*function)(SQVM*)>
    NativeTable& plain(const char* name, ParameterCount count) {
        return plain(name, &callNative<function>, count);
    }

    template <class Result, class... Arguments>
    NativeTable& carried(const char* name, Result (*function)(Arguments...)) {
        const StackGuard guard(m_vm);
        pushFunction(m_vm, name, function);
        return enter(name, parameterCount<Arguments...>);
    }
    NativeTable& carried(const char* name, SQInteger (*function)(SQVM*), ParameterCount count) {
        const StackGuard guard(m_vm);
        pushClosure(m_vm, &callCarried, &function, sizeof function, name);
        return enter(name, count);
    }

private:
    static SQInteger callCarried(SQVM* v) noexcept {
        return guarded(v, [v] {
            const auto function = functionAtTop<SQInteger (*)(SQVM*)>(v);
            sq_poptop(v);
            return function(v);
        });
    }
    NativeTable& plain(const char* name, SQFUNCTION function, ParameterCount count) {
        const StackGuard guard(m_vm);
        sq_newclosure(m_vm, function, 0);
        sq_setnativeclosurename(m_vm, -1, name);
        return enter(name, count);
    }
    NativeTable& enter(const char* name, ParameterCount count) {
        sq_setparamscheck(m_vm, count, nullptr);
        m_table.set(name, Object(m_vm, -1));
        return *this;
    }

    SQVM* const m_vm;
    const Object m_table;
};

} // namespace kivSq::internal
