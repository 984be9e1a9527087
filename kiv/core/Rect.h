#pragma once

#include "kiv/core/IVec2.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

namespace kiv {

// A rectangle of whole pixels: of each row, those from x up to, and without, x + width. Empty when the width or the
// height is not positive; an empty one contains nothing, is in no other and meets none. A plain value. All arithmetic
// is 64 bits wide; where a result has no room, its position is moved to the nearest that has, and its far edges are
// cut off.
class Rect {
public:
    using Point = IVec2<int32_t>;

    static const char* getStaticClassName() { return "Rect"; }
    // The right and the bottom edge are just outside. Empty, and all 0, when they are not beyond the others.
    static constexpr Rect fromEdges(int64_t left, int64_t top, int64_t right, int64_t bottom) {
        const int32_t x = saturated(left), y = saturated(top);
        if (right <= left || bottom <= top || right <= x || bottom <= y) return {};
        return {x, y, saturated(right - x), saturated(bottom - y)};
    }

    constexpr Rect() = default;
    constexpr Rect(int32_t atX, int32_t atY, int32_t ofWidth, int32_t ofHeight)
        : x(atX), y(atY), width(ofWidth), height(ofHeight) {}
    constexpr Rect(const Point& position, const Point& size) : Rect(position.x, position.y, size.x, size.y) {}

    constexpr bool isEmpty() const { return width <= 0 || height <= 0; }
    constexpr Point getPosition() const { return {x, y}; }
    constexpr Point getSize() const { return {width, height}; }
    constexpr int64_t getRight() const { return int64_t{x} + width; }
    constexpr int64_t getBottom() const { return int64_t{y} + height; }
    // 0 when empty.
    constexpr int64_t getArea() const { return isEmpty() ? 0 : int64_t{width} * height; }
    // The pixel in the middle, of two the right or lower one.
    constexpr Point getCenter() const {
        return {saturated(int64_t{x} + width / 2), saturated(int64_t{y} + height / 2)};
    }

    constexpr bool contains(const Point& point) const {
        return x <= point.x && point.x < getRight() && y <= point.y && point.y < getBottom();
    }
    constexpr bool contains(const Rect& other) const { return !other.isEmpty() && intersected(other) == other; }
    constexpr bool intersects(const Rect& other) const { return !intersected(other).isEmpty(); }

    // What is in both; all 0 when nothing is.
    constexpr Rect intersected(const Rect& other) const {
        return fromEdges(std::max(x, other.x), std::max(y, other.y), std::min(getRight(), other.getRight()),
                         std::min(getBottom(), other.getBottom()));
    }
    // The smallest that contains both; an empty one adds nothing.
    constexpr Rect united(const Rect& other) const {
        if (isEmpty()) return other;
        if (other.isEmpty()) return *this;
        return fromEdges(std::min(x, other.x), std::min(y, other.y), std::max(getRight(), other.getRight()),
                         std::max(getBottom(), other.getBottom()));
    }
    // Keeps its size.
    constexpr Rect translated(const Point& by) const {
        return {saturated(int64_t{x} + by.x), saturated(int64_t{y} + by.y), width, height};
    }
    // Moves the left and right edges out by `by.x`, the others by `by.y`; in, when negative, and to nothing at the end.
    constexpr Rect expanded(const Point& by) const {
        return fromEdges(int64_t{x} - by.x, int64_t{y} - by.y, getRight() + by.x, getBottom() + by.y);
    }
    // The pixel of this rectangle that is nearest to `point`. Requires: not empty.
    constexpr Point clamped(const Point& point) const {
        return {saturated(std::clamp<int64_t>(point.x, x, std::max<int64_t>(getRight() - 1, x))),
                saturated(std::clamp<int64_t>(point.y, y, std::max<int64_t>(getBottom() - 1, y)))};
    }

    // "(x, y, width, height)"
    std::string toString() const {
        const auto text = [](int32_t number) { return std::to_string(number); };
        return "(" + text(x) + ", " + text(y) + ", " + text(width) + ", " + text(height) + ")";
    }

    friend constexpr bool operator==(const Rect& a, const Rect& b) = default;

    int32_t x = 0, y = 0, width = 0, height = 0;

private:
    static constexpr int32_t saturated(int64_t value) {
        using Limits = std::numeric_limits<int32_t>;
        return static_cast<int32_t>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
    }
};

} // namespace kiv
