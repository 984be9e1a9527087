#pragma once

#include "kiv/core/IVec3.h"

namespace kiv {

// A point in space with a fourth coordinate, or a colour. A plain value of 4 components: 8- to 64-bit integers, float
// or double. The order, for sets and maps, is that of the first component that differs.
template <internal::IVecComponent T>
class IVec4 : public internal::IVecBase<IVec4<T>, T> {
public:
    template <class U>
    using Of = IVec4<U>;

    static const char* getStaticClassName() { return "IVec4"; }

    constexpr IVec4() = default;
    constexpr IVec4(T atX, T atY, T atZ, T atW) : x(atX), y(atY), z(atZ), w(atW) {}
    constexpr IVec4(const IVec3<T>& xyz, T atW) : x(xyz.x), y(xyz.y), z(xyz.z), w(atW) {}
    // Integers keep their low bits; fractions are cut off, and what is too large for an integer becomes its limit.
    template <class U>
    constexpr explicit IVec4(const IVec4<U>& other)
        : x(internal::convertComponent<T>(other.x)), y(internal::convertComponent<T>(other.y)),
          z(internal::convertComponent<T>(other.z)), w(internal::convertComponent<T>(other.w)) {}
    static constexpr IVec4 filled(T all) { return {all, all, all, all}; }

    // Requires: index < 4; not checked.
    constexpr T operator[](unsigned index) const { return index == 0 ? x : index == 1 ? y : index == 2 ? z : w; }
    constexpr T& operator[](unsigned index) { return index == 0 ? x : index == 1 ? y : index == 2 ? z : w; }
    constexpr IVec3<T> xyz() const { return {x, y, z}; }

    template <class F, class... V>
    static constexpr IVec4 zip(F f, const V&... v) {
        return {f(v.x...), f(v.y...), f(v.z...), f(v.w...)};
    }
    template <class A, class F>
    constexpr A fold(A start, F f) const {
        return f(f(f(f(start, x), y), z), w);
    }

    friend constexpr bool operator==(const IVec4& a, const IVec4& b) = default;
    friend constexpr auto operator<=>(const IVec4& a, const IVec4& b) = default;

    T x{};
    T y{};
    T z{};
    T w{};
};

} // namespace kiv
