#pragma once

#include <charconv>
#include <cmath>
#include <compare>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

namespace kiv::internal {

template <class T>
concept IVecComponent =
    (std::integral<T> && !std::same_as<T, bool>) || std::same_as<T, float> || std::same_as<T, double>;

// Sums and products of integers wrap in their own type; they are worked out unsigned, where that is defined.
template <IVecComponent T, class F>
constexpr T wrapping(T a, T b, F operation) {
    if constexpr (std::integral<T>) {
        return static_cast<T>(operation(static_cast<uint64_t>(a), static_cast<uint64_t>(b)));
    } else {
        return operation(a, b);
    }
}

// Integers keep their low bits; fractions are cut off, what is too large for an integer becomes its limit, NaN 0.
template <IVecComponent T, IVecComponent U>
constexpr T convertComponent(U value) {
    if constexpr (std::integral<T> && std::floating_point<U>) {
        // The limit itself may round up, so that it is too large, too.
        if (value >= static_cast<U>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
        if (value <= static_cast<U>(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
        return value == value ? static_cast<T>(value) : T();
    } else {
        return static_cast<T>(value);
    }
}

// What IVec2, IVec3 and IVec4 have in common. V has zip(f, vectors...), a vector of what `f` gives for each component
// of the vectors, and fold(start, f), which passes the components through `f` one after the other.
template <class V, IVecComponent T>
class IVecBase {
public:
    using Component = T;
    // For sums of products: as wide as there is of its kind.
    using Wide = std::conditional_t<std::floating_point<T>, double,
                                    std::conditional_t<std::unsigned_integral<T>, uint64_t, int64_t>>;

    constexpr bool isZero() const {
        return self().fold(true, [](bool sum, T c) { return sum && c == T(); });
    }
    // Integers wrap at 64 bits.
    constexpr Wide dot(const V& other) const {
        const auto products = V::template Of<Wide>::zip([](T a, T b) { return multiply<Wide>(a, b); }, self(), other);
        return products.fold(Wide(), [](Wide sum, Wide c) { return add<Wide>(sum, c); });
    }
    constexpr Wide squaredLength() const { return dot(self()); }
    double length() const {
        return std::sqrt(self().fold(0.0, [](double sum, T c) {
            const double wide = static_cast<double>(c);
            return sum + wide * wide;
        }));
    }
    // Of length 1; the zero vector stays.
    V normalized() const requires std::floating_point<T> {
        const double by = length();
        return by == 0 ? self() : V::zip([by](T c) { return static_cast<T>(c / by); }, self());
    }
    constexpr T minComponent() const { return self().fold(self()[0], least); }
    constexpr T maxComponent() const { return self().fold(self()[0], greatest); }
    // As pixels of an image of this size; integers wrap at 64 bits.
    constexpr Wide product() const { return self().fold(Wide(1), multiply<Wide, Wide>); }

    // Component by component.
    constexpr V min(const V& other) const { return V::zip(least, self(), other); }
    constexpr V max(const V& other) const { return V::zip(greatest, self(), other); }
    // Requires: no component of `low` is above that of `high`.
    constexpr V clamp(const V& low, const V& high) const { return max(low).min(high); }
    // The most negative integer stays.
    constexpr V abs() const {
        return V::zip([](T c) { return c < T() ? subtract(T(), c) : c; }, self());
    }

    // "(1, 2)"; floating-point numbers in as few digits as tell them apart.
    std::string toString() const {
        return self().fold(std::string("("), [](const std::string& text, T c) {
            char digits[32];
            char* const end = write(digits, c);
            return text + (text.size() == 1 ? "" : ", ") + std::string(+digits, end);
        }) + ")";
    }

    // Integers wrap.
    friend constexpr V operator+(const V& a, const V& b) { return V::zip(add<T>, a, b); }
    friend constexpr V operator-(const V& a, const V& b) { return V::zip(subtract<T>, a, b); }
    friend constexpr V operator*(const V& a, const V& b) { return V::zip(multiply<T, T>, a, b); }
    // Requires, of integers: no component of `b` is 0.
    friend constexpr V operator/(const V& a, const V& b) { return V::zip(divide, a, b); }
    friend constexpr V operator+(const V& a, T b) {
        return V::zip([b](T c) { return add(c, b); }, a);
    }
    friend constexpr V operator-(const V& a, T b) {
        return V::zip([b](T c) { return subtract(c, b); }, a);
    }
    friend constexpr V operator*(const V& a, T b) {
        return V::zip([b](T c) { return multiply<T>(c, b); }, a);
    }
    friend constexpr V operator*(T a, const V& b) { return b * a; }
    friend constexpr V operator/(const V& a, T b) {
        return V::zip([b](T c) { return divide(c, b); }, a);
    }
    friend constexpr V operator-(const V& a) {
        return V::zip([](T c) { return negate(c); }, a);
    }
    friend constexpr V& operator+=(V& a, const V& b) { return a = a + b; }
    friend constexpr V& operator-=(V& a, const V& b) { return a = a - b; }
    friend constexpr V& operator*=(V& a, const V& b) { return a = a * b; }
    friend constexpr V& operator/=(V& a, const V& b) { return a = a / b; }
    friend constexpr V& operator+=(V& a, T b) { return a = a + b; }
    friend constexpr V& operator-=(V& a, T b) { return a = a - b; }
    friend constexpr V& operator*=(V& a, T b) { return a = a * b; }
    friend constexpr V& operator/=(V& a, T b) { return a = a / b; }

protected:
    // Has no data; its children's comparisons are defaulted.
    friend constexpr auto operator<=>(const IVecBase&, const IVecBase&) = default;

private:
    constexpr const V& self() const { return static_cast<const V&>(*this); }

    template <class C>
    static constexpr C add(C a, C b) {
        return wrapping(a, b, [](auto c, auto d) { return c + d; });
    }
    template <class C>
    static constexpr C subtract(C a, C b) {
        return wrapping(a, b, [](auto c, auto d) { return c - d; });
    }
    template <class C, class From>
    static constexpr C multiply(From a, From b) {
        return wrapping(static_cast<C>(a), static_cast<C>(b), [](auto c, auto d) { return c * d; });
    }
    // The most negative integer divided by -1 is itself, as wrapping has it; processors stop the program there.
    static constexpr T divide(T a, T b) {
        if constexpr (std::signed_integral<T>) {
            if (b == T(-1)) return subtract(T(), a);
        }
        return static_cast<T>(a / b);
    }
    static constexpr T negate(T a) {
        if constexpr (std::floating_point<T>) return -a;
        return subtract(T(), a);
    }
    static constexpr T least(T a, T b) { return b < a ? b : a; }
    static constexpr T greatest(T a, T b) { return a < b ? b : a; }
    template <size_t Size>
    static char* write(char (&digits)[Size], T value) {
        // Characters would be written as such.
        if constexpr (std::integral<T>)
            return std::to_chars(digits, digits + Size, static_cast<Wide>(value)).ptr;
        else
            return std::to_chars(digits, digits + Size, value).ptr;
    }
};

} // namespace kiv::internal
