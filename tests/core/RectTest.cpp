// Hunts: edges off by one, empty rectangles taken for points, overflow at extreme coordinates.
#include "kiv/core/Rect.h"
#include "kiv/core/Random.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace kiv {
namespace {

using Point = Rect::Point;

// Against the sets of pixels, drawn in a small plane.
TEST(Rect, AgreesWithItsPixels) {
    constexpr int side = 12;
    const auto pixels = [](auto isIn) {
        std::string drawn;
        for (int32_t y = -2; y < side; ++y)
            for (int32_t x = -2; x < side; ++x) drawn += isIn(Point(x, y)) ? '#' : '.';
        return drawn;
    };
    const auto of = [&](const Rect& rect) { return pixels([&](const Point& p) { return rect.contains(p); }); };
    SeededRandom random(4);
    const auto number = [&](int below) { return static_cast<int32_t>(random.randomUInt() % unsigned(below)); };
    for (int i = 0; i < 3000; ++i) {
        const Rect a(number(6), number(6), number(6), number(6)), b(number(6), number(6), number(6), number(6));
        const std::string both = pixels([&](const Point& p) { return a.contains(p) && b.contains(p); });
        SCOPED_TRACE(a.toString() + b.toString());
        ASSERT_EQ(of(a.intersected(b)), both);
        ASSERT_EQ(a.intersects(b), both.find('#') != both.npos);
        ASSERT_EQ(a.contains(b), both == of(b) && !b.isEmpty());
        const Rect united = a.united(b);
        ASSERT_TRUE((a.isEmpty() || united.contains(a)) && (b.isEmpty() || united.contains(b)));
        for (const Rect smaller : {Rect(united.x + 1, united.y, united.width - 1, united.height),
                                   Rect(united.x, united.y, united.width, united.height - 1)})
            ASSERT_FALSE(!a.isEmpty() && !b.isEmpty() && smaller.contains(a) && smaller.contains(b));
        const std::string own = of(a);
        ASSERT_EQ(a.getArea(), std::count(own.begin(), own.end(), '#'));
        if (a.isEmpty()) continue;
        ASSERT_TRUE(a.contains(a.getCenter()) && a.contains(a.clamped(b.getPosition())));
        ASSERT_EQ(a.clamped(a.getCenter()), a.getCenter());
        const Point by(number(3), number(3));
        ASSERT_EQ(a.expanded(by).expanded(-by), a);
        ASSERT_EQ(of(a.expanded(-by)),
                  pixels([&](const Point& p) { return a.contains(p + by) && a.contains(p - by); }));
        ASSERT_EQ(a.translated(by).intersected(a).isEmpty(), by.x >= a.width || by.y >= a.height);
    }
}

TEST(Rect, ExtremeCoordinatesSaturate) {
    constexpr int32_t low = INT32_MIN, high = INT32_MAX;
    constexpr Rect left(low, low, high, high), right(high, high, high, high), middle(-5, -5, 10, 10);
    static_assert(right.getRight() == int64_t{high} * 2 && left.getArea() == int64_t{high} * high);
    EXPECT_EQ(left.united(right), left); // its far edges are cut off
    EXPECT_FALSE(left.intersects(right) || !right.contains(Point(high, high)) || left.contains(Point(-1, low)));
    EXPECT_EQ(right.getCenter(), Point(high, high));
    EXPECT_EQ(right.clamped(Point(0, 0)), Point(high, high));
    EXPECT_EQ(right.translated(Point(1, low)), Rect(high, -1, high, high));
    EXPECT_EQ(middle.expanded(Point(high, high)), Rect(low, low, high, high));
    EXPECT_EQ(left.expanded(Point(low, 0)), Rect());
    EXPECT_EQ(Rect(3, 4, low, low).expanded(Point(0, 0)), Rect());
    EXPECT_TRUE(Rect(low, 0, low, 5).isEmpty() && !left.contains(Rect(0, 0, -1, 5)));
    EXPECT_EQ(Rect::fromEdges(INT64_C(-5000000000), 0, INT64_C(-4000000000), 1), Rect()); // all of it out of reach
}

} // namespace
} // namespace kiv
