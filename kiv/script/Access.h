#pragma once

#include "kiv/core/Containers.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"
#include "kiv/script/InstanceAccess.h"
#include "kiv/script/ItemAccess.h"
#include "kiv/script/NumberAccess.h"
#include "kiv/script/Object.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/TextAccess.h"
#include "kiv/script/VectorAccess.h"

#include <concepts>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>

// How native values become script values and back. Access<T> has
//     static bool get(SQVM* v, int64_t index, T& out);   // false when the value in that stack slot is no T
//     static bool push(SQVM* v, const T& value);         // false, with the script error set, when it can't be pushed
//     static const char* name();                         // of the type, for messages
// The one for classes that are bound (see Class.h) is the general one; specialise it for types of your own.

namespace kivSq {

namespace internal {

// Sets the script error "argument 2: expected integer, got string" and returns SQ_ERROR. Number 0 is a member's value.
KIV_API SQInteger throwMismatch(SQVM* v, int number, const char* expected, SQInteger index);
KIV_API void logFailedConversion(SQVM* v);

} // namespace internal

// Any script value.
template <>
struct Access<Object> {
    static bool get(SQVM* v, int64_t index, Object& out) {
        out = Object(v, index);
        return true;
    }
    static bool push(SQVM* v, const Object& value) {
        value.push(v);
        return true;
    }
    static const char* name() { return "value"; }
};

// Null is none.
template <class T>
struct Access<std::optional<T>> {
    static bool get(SQVM* v, int64_t index, std::optional<T>& out) {
        if (sq_gettype(v, index) == OT_NULL) {
            out.reset();
            return true;
        }
        T value{};
        if (!Access<T>::get(v, index, value)) return false;
        out = std::move(value);
        return true;
    }
    static bool push(SQVM* v, const std::optional<T>& value) {
        if (value) return Access<T>::push(v, *value);
        sq_pushnull(v);
        return true;
    }
    static const char* name() { return Access<T>::name(); }
};

// Arrays whose elements are all of one type; scripts get new ones.
template <class T>
struct Access<kiv::Vector<T>> {
    static bool get(SQVM* v, int64_t index, kiv::Vector<T>& out) {
        if (sq_gettype(v, index) != OT_ARRAY) return false;
        const StackGuard guard(v);
        sq_push(v, index);
        const SQInteger size = sq_getsize(v, -1);
        kiv::Vector<T> values;
        values.reserve(static_cast<size_t>(size));
        for (SQInteger i = 0; i < size; ++i) {
            sq_pushinteger(v, i);
            T value{};
            if (SQ_FAILED(sq_rawget(v, -2)) || !Access<T>::get(v, -1, value)) return false;
            values.push_back(std::move(value));
            sq_poptop(v);
        }
        out = std::move(values);
        return true;
    }
    static bool push(SQVM* v, const kiv::Vector<T>& values) {
        const SQInteger top = sq_gettop(v);
        sq_newarray(v, 0);
        for (const T& value : values) {
            if (!Access<T>::push(v, value)) {
                sq_settop(v, top);
                return false;
            }
            sq_arrayappend(v, -2);
        }
        return true;
    }
    static const char* name() {
        static const std::string text = std::string("array of ") + Access<T>::name();
        return text.c_str();
    }
};

// ---- Handles.

namespace internal {
// The engine VM of the process; null without one.
KIV_API SQVM* currentEngine();
} // namespace internal

template <class T>
Object Object::from(const T& value) {
    SQVM* v = internal::currentEngine();
    if (!v) return {};
    const StackGuard guard(v);
    if (Access<std::decay_t<T>>::push(v, value)) return Object(v, -1);
    internal::logFailedConversion(v);
    return {};
}

template <class T>
bool Object::to(T& out) const {
    // Most numbers need no engine.
    if constexpr (std::integral<T> && !std::is_same_v<T, bool>) {
        const int64_t value = m_handle._unVal.nInteger;
        if (isInteger() && value >= Access<T>::smallest && value <= Access<T>::largest) {
            out = static_cast<T>(value);
            return true;
        }
    }
    SQVM* v = internal::currentEngine();
    if (!v) return false;
    const StackGuard guard(v);
    push(v);
    if (Access<T>::get(v, -1, out)) return true;
    sq_reseterror(v);
    return false;
}

} // namespace kivSq
