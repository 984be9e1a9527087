#pragma once

#include "kiv/core/GregorianDate.h"
#include "kiv/core/IVec3.h"
#include "kiv/core/Rect.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>

// Vectors, rectangles and dates as arguments and results of native functions; Access.h includes it. Scripts get copies,
// of their classes kiv.IVec2 and so on, which are bound when the first is needed. All vectors of two components are one
// script class, whose components are 64-bit integers, and so are those of three. A vector converts if each component
// does, without loss; integers become floats as numbers do.

namespace kivSq {

template <class T>
struct Access;

namespace internal {

template <class To, class From>
bool convertExactly(From from, To& to) {
    if constexpr (std::floating_point<To>) {
        to = static_cast<To>(from);
        return true;
    } else if constexpr (std::floating_point<From>) {
        if (!(from >= From(-0x1p63) && from < From(0x1p63))) return false;
        to = static_cast<To>(from);
        return static_cast<From>(to) == from;
    } else {
        to = static_cast<To>(from);
        return static_cast<From>(to) == from && (to < To()) == (from < From());
    }
}

template <class To, class From>
bool convertVector(const From& from, To& to) {
    bool isExact = true;
    to = To::zip(
        [&](auto component) {
            typename To::Component converted{};
            isExact &= convertExactly(component, converted);
            return converted;
        },
        from);
    return isExact;
}

template <class T>
std::string vectorName(const char* className) {
    if (std::floating_point<T> || std::same_as<T, int64_t>) return className;
    return std::string(className) + " of " + (std::is_unsigned_v<T> ? "unsigned " : "") +
           std::to_string(sizeof(T) * 8) + "-bit integers";
}

// Sets the script error and returns false.
KIV_API bool refuseVector(SQVM* v, const char* className, const std::string& value);

// Of the classes of scripts themselves: defined for IVec2<int64_t> and IVec3<int64_t>.
template <class Wide>
KIV_API bool getWide(SQVM* v, int64_t index, Wide& out);
template <class Wide>
KIV_API bool pushWide(SQVM* v, const Wide& value);

template <class Vector>
struct VectorAccess {
    using Wide = typename Vector::template Of<int64_t>;

    static bool get(SQVM* v, int64_t index, Vector& out) {
        Wide wide;
        return getWide(v, index, wide) && convertVector(wide, out);
    }
    static bool push(SQVM* v, const Vector& value) {
        Wide wide;
        if (!convertVector(value, wide)) return refuseVector(v, Vector::getStaticClassName(), value.toString());
        return pushWide(v, wide);
    }
    static const char* name() {
        static const std::string text = vectorName<typename Vector::Component>(Vector::getStaticClassName());
        return text.c_str();
    }
};

} // namespace internal

template <class T>
struct Access<kiv::IVec2<T>> : internal::VectorAccess<kiv::IVec2<T>> {};
template <class T>
struct Access<kiv::IVec3<T>> : internal::VectorAccess<kiv::IVec3<T>> {};

template <>
struct Access<kiv::Rect> {
    KIV_API static bool get(SQVM* v, int64_t index, kiv::Rect& out);
    KIV_API static bool push(SQVM* v, const kiv::Rect& value);
    static const char* name() { return "Rect"; }
};

template <>
struct Access<kiv::GregorianDate> {
    KIV_API static bool get(SQVM* v, int64_t index, kiv::GregorianDate& out);
    KIV_API static bool push(SQVM* v, const kiv::GregorianDate& value);
    static const char* name() { return "GregorianDate"; }
};

} // namespace kivSq
