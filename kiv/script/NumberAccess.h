#pragma once

#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"

#include <concepts>
#include <cstdint>
#include <limits>
#include <type_traits>

// Numbers and truth as arguments and results of native functions; Access.h includes it. They convert as the engine has
// it: integers take floats, cut towards zero, and floats take integers; true and false are what counts as such.

namespace kivSq {

template <class T>
struct Access;

namespace internal {

// Whether the float or integer in a stack slot, cut towards zero, is a 64-bit integer.
KIV_API bool fitsInteger(SQVM* v, SQInteger index);

inline bool getInteger(SQVM* v, SQInteger index, int64_t smallest, int64_t largest, int64_t& out) {
    SQInteger number = 0;
    if (SQ_FAILED(sq_getinteger(v, index, &number))) return false;
    out = number;
    // Floats that don't fit come as the smallest integer.
    return out >= smallest && out <= largest && (out != INT64_MIN || fitsInteger(v, index));
}

} // namespace internal

template <std::integral T>
struct Access<T> {
    // What fits the width, signed or not.
    static constexpr int64_t smallest = std::numeric_limits<std::make_signed_t<T>>::min();
    static constexpr int64_t largest =
        sizeof(T) < 8 ? static_cast<int64_t>(std::numeric_limits<std::make_unsigned_t<T>>::max()) : INT64_MAX;

    static bool get(SQVM* v, int64_t index, T& out) {
        int64_t value = 0;
        if (!internal::getInteger(v, index, smallest, largest, value)) return false;
        out = static_cast<T>(value);
        return true;
    }
    static bool push(SQVM* v, T value) {
        sq_pushinteger(v, static_cast<SQInteger>(value));
        return true;
    }
    static const char* name() {
        return sizeof(T) == 8   ? "integer"
               : sizeof(T) == 4 ? "32-bit integer"
               : sizeof(T) == 2 ? "16-bit integer"
                                : "8-bit integer";
    }
};

// As their numbers.
template <class T>
requires std::is_enum_v<T>
struct Access<T> {
    using Number = std::underlying_type_t<T>;

    static bool get(SQVM* v, int64_t index, T& out) {
        Number number{};
        if (!Access<Number>::get(v, index, number)) return false;
        out = static_cast<T>(number);
        return true;
    }
    static bool push(SQVM* v, T value) { return Access<Number>::push(v, static_cast<Number>(value)); }
    static const char* name() { return Access<Number>::name(); }
};

template <>
struct Access<bool> {
    static bool get(SQVM* v, int64_t index, bool& out) {
        SQBool value = SQFalse;
        sq_tobool(v, index, &value);
        out = value != SQFalse;
        return true;
    }
    static bool push(SQVM* v, bool value) {
        sq_pushbool(v, value ? SQTrue : SQFalse);
        return true;
    }
    static const char* name() { return "bool"; }
};

template <std::floating_point T>
struct Access<T> {
    static bool get(SQVM* v, int64_t index, T& out) {
        SQFloat value = 0;
        if (SQ_FAILED(sq_getfloat(v, index, &value))) return false;
        out = static_cast<T>(value);
        return true;
    }
    static bool push(SQVM* v, T value) {
        sq_pushfloat(v, static_cast<SQFloat>(value));
        return true;
    }
    static const char* name() { return "float"; }
};

} // namespace kivSq
