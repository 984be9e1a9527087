#pragma once

#include "kiv/script/Call.h"

// Native functions of the root tables, entered by name.

namespace kivSq::internal {

// For plain native closures: the function is known to the compiler, so nothing is carried along.
template <auto function>
struct PlainCall;
template <class Result, class... Arguments, Result (*function)(Arguments...)>
struct PlainCall<function> {
    static SQInteger call(SQVM* v) noexcept {
        return guarded(v, [v]() -> SQInteger {
            if (sq_gettop(v) != static_cast<SQInteger>(sizeof...(Arguments)) + 1)
                return sq_throwerror(v, "wrong number of parameters");
            return invoke<Result, Arguments...>(v, 2, function, std::index_sequence_for<Arguments...>());
        });
    }
};

class NativeTable {
public:
    NativeTable(SQVM* v, const Object& table) : m_vm(v), m_table(table) {}

    // A plain native closure that works on the engine's stack itself.
    NativeTable& native(const char* name, SQFUNCTION function) {
        const StackGuard guard(m_vm);
        sq_newclosure(m_vm, function, 0);
        sq_setnativeclosurename(m_vm, -1, name);
        return enter(name);
    }
    // The same, with converted arguments: `plain<&function>("name")`.
    template <auto function>
    NativeTable& plain(const char* name) {
        return native(name, &PlainCall<function>::call);
    }
    // A native closure that carries the function.
    template <class Result, class... Arguments>
    NativeTable& carried(const char* name, Result (*function)(Arguments...)) {
        const StackGuard guard(m_vm);
        pushFunction(m_vm, name, function);
        return enter(name);
    }
    // The same for functions that take their arguments from the engine's stack, which then holds nothing else.
    NativeTable& carried(const char* name, SQInteger (*function)(SQVM*)) {
        const StackGuard guard(m_vm);
        pushClosure(m_vm, &callCarried, &function, sizeof function, name);
        return enter(name);
    }

private:
    static SQInteger callCarried(SQVM* v) noexcept {
        return guarded(v, [v] {
            const auto function = functionAtTop<SQInteger (*)(SQVM*)>(v);
            sq_poptop(v);
            return function(v);
        });
    }
    NativeTable& enter(const char* name) {
        m_table.set(name, Object(m_vm, -1));
        return *this;
    }

    SQVM* const m_vm;
    const Object& m_table;
};

} // namespace kivSq::internal
