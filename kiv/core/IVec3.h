#pragma once

#include "kiv/core/IVec2.h"

namespace kiv {

// A point, an offset or a size in space. A plain value of 3 components: 8- to 64-bit integers, float or double. The
// order, for sets and maps, is that of the first component that differs.
template <internal::IVecComponent T>
class IVec3 : public internal::IVecBase<IVec3<T>, T> {
public:
    template <class U>
    using Of = IVec3<U>;

    static const char* getStaticClassName() { return "IVec3"; }

    constexpr IVec3() = default;
    constexpr IVec3(T atX, T atY, T atZ) : x(atX), y(atY), z(atZ) {}
    constexpr IVec3(const IVec2<T>& xy, T atZ) : x(xy.x), y(xy.y), z(atZ) {}
    // Integers keep their low bits; fractions are cut off, and what is too large for an integer becomes its limit.
    template <class U>
    constexpr explicit IVec3(const IVec3<U>& other)
        : x(internal::convertComponent<T>(other.x)), y(internal::convertComponent<T>(other.y)),
          z(internal::convertComponent<T>(other.z)) {}
    static constexpr IVec3 filled(T all) { return {all, all, all}; }

    // Requires: index < 3; not checked.
    constexpr T operator[](unsigned index) const { return index == 0 ? x : index == 1 ? y : z; }
    constexpr T& operator[](unsigned index) { return index == 0 ? x : index == 1 ? y : z; }
    constexpr IVec2<T> xy() const { return {x, y}; }
    // Integers wrap.
    constexpr IVec3 cross(const IVec3& b) const {
        return IVec3(y, z, x) * IVec3(b.z, b.x, b.y) - IVec3(z, x, y) * IVec3(b.y, b.z, b.x);
    }

    template <class F, class... V>
    static constexpr IVec3 zip(F f, const V&... v) {
        return {f(v.x...), f(v.y...), f(v.z...)};
    }
    template <class A, class F>
    constexpr A fold(A start, F f) const {
        return f(f(f(start, x), y), z);
    }

    friend constexpr bool operator==(const IVec3& a, const IVec3& b) = default;
    friend constexpr auto operator<=>(const IVec3& a, const IVec3& b) = default;

    T x{};
    T y{};
    T z{};
};

} // namespace kiv
