#pragma once

#include "kiv/core/IVecBase.h"

namespace kiv {

// A point, an offset or a size in the plane. A plain value of 2 components: 8- to 64-bit integers, float or double. The
// order, for sets and maps, is that of the first component that differs.
template <internal::IVecComponent T>
class IVec2 : public internal::IVecBase<IVec2<T>, T> {
public:
    template <class U>
    using Of = IVec2<U>;

    static const char* getStaticClassName() { return "IVec2"; }

    constexpr IVec2() = default;
    constexpr IVec2(T atX, T atY) : x(atX), y(atY) {}
    // Integers keep their low bits; fractions are cut off, and what is too large for an integer becomes its limit.
    template <class U>
    constexpr explicit IVec2(const IVec2<U>& other)
        : x(internal::convertComponent<T>(other.x)), y(internal::convertComponent<T>(other.y)) {}
    static constexpr IVec2 filled(T all) { return {all, all}; }

    // Requires: index < 2; not checked.
    constexpr T operator[](unsigned index) const { return index == 0 ? x : y; }
    constexpr T& operator[](unsigned index) { return index == 0 ? x : y; }

    template <class F, class... V>
    static constexpr IVec2 zip(F f, const V&... v) {
        return {f(v.x...), f(v.y...)};
    }
    template <class A, class F>
    constexpr A fold(A start, F f) const {
        return f(f(start, x), y);
    }

    friend constexpr bool operator==(const IVec2& a, const IVec2& b) = default;
    friend constexpr auto operator<=>(const IVec2& a, const IVec2& b) = default;

    T x{};
    T y{};
};

} // namespace kiv
