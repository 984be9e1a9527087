// Hunts: signed overflow (with the sanitizers), small integers that stay promoted, components mixed up, conversions out
// of range.
#include "kiv/core/IVec4.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <vector>

namespace kiv {
namespace {

template <class T>
class IVecOf : public testing::Test {};
using Components = testing::Types<int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, float,
                                  double, long, long long>;
TYPED_TEST_SUITE(IVecOf, Components);

// Against the same operation on single numbers, small enough for every type.
TYPED_TEST(IVecOf, ArithmeticIsThatOfEachComponent) {
    using T = TypeParam;
    using Vec = IVec4<T>;
    const Vec a(9, 17, 30, 5), b(3, 4, 2, 1);
    const auto is = [](const Vec& v, double x, double y, double z, double w) {
        EXPECT_TRUE(v.x == static_cast<T>(x) && v.y == static_cast<T>(y) && v.z == static_cast<T>(z) &&
                    v.w == static_cast<T>(w))
            << v.toString();
    };
    is(a + b, 12, 21, 32, 6), is(a - b, 6, 13, 28, 4), is(a * b, 27, 68, 60, 5);
    is(a / b, 3, std::floating_point<T> ? 4.25 : 4, 15, 5), is(T(2) * b + T(1) - T(3), 4, 6, 2, 0);
    is(b * T(6) / T(3), 6, 8, 4, 2), is(-(-b), 3, 4, 2, 1), is(b - b, 0, 0, 0, 0);
    is(a.min(Vec::filled(10)), 9, 10, 10, 5), is(a.max(Vec::filled(10)), 10, 17, 30, 10);
    is(a.clamp(b * T(2), b * T(5)), 9, 17, 10, 5);
    Vec c = a;
    c += b, c -= Vec(1, 2, 3, 4), c *= T(2), c /= b, c += T(1);
    is(c, static_cast<T>(T(22) / T(3)) + T(1), std::floating_point<T> ? 10.5 : 10, 30, 5);
    EXPECT_EQ(a.dot(b), 27 + 68 + 60 + 5);
    EXPECT_EQ(b.squaredLength(), 30);
    EXPECT_DOUBLE_EQ((IVec2<T>(3, 4).length()), 5);
    EXPECT_DOUBLE_EQ((IVec3<T>(100, 100, 100).length()), std::sqrt(30000.0));
    EXPECT_TRUE(a.minComponent() == 5 && a.maxComponent() == 30 && b.product() == 24);
    EXPECT_TRUE((a[0] == 9 && a[1] == 17 && a[2] == 30 && a[3] == 5));
    c[1] = c[3] = 7;
    EXPECT_TRUE(c.y == 7 && c.w == 7 && c.z == 30);
    EXPECT_EQ((IVec3<T>(3, 3, 4).cross(IVec3<T>(0, 2, 1)) + T(9)), (IVec3<T>(4, 6, 15)));
    EXPECT_EQ(IVec4<T>(IVec3<T>(IVec2<T>(1, 2), 3), 4), Vec(1, 2, 3, 4));
    EXPECT_EQ(Vec(1, 2, 3, 4).toString(), "(1, 2, 3, 4)");
    EXPECT_TRUE(Vec().isZero() && !Vec(0, 0, 0, 1).isZero());
    static_assert(sizeof(Vec) == 4 * sizeof(T) && std::is_trivially_copyable_v<Vec>);
}

TEST(IVec, IntegersWrapInTheirOwnType) {
    const auto wraps = []<class T>(T) {
        using Limits = std::numeric_limits<T>;
        const IVec2<T> low(Limits::min(), 1), high(Limits::max(), 1);
        EXPECT_EQ(high + T(1), (IVec2<T>(Limits::min(), 2)));
        EXPECT_EQ(low - T(1), (IVec2<T>(Limits::max(), 0)));
        EXPECT_EQ(high * high, (IVec2<T>(1, 1)));
        if (!Limits::is_signed) return;
        const T minus = static_cast<T>(-1);
        EXPECT_TRUE((-low).x == Limits::min() && (low / minus).x == Limits::min() && low.abs().x == Limits::min());
        EXPECT_EQ((high * minus).abs(), high);
    };
    wraps(int8_t()), wraps(uint8_t()), wraps(int16_t()), wraps(uint16_t()), wraps(int32_t()), wraps(uint32_t());
    wraps(int64_t()), wraps(uint64_t());
    const IVec2<int32_t> far(INT32_MIN, INT32_MIN);
    EXPECT_EQ(far.dot(IVec2<int32_t>(-1, 0)), int64_t{1} << 31);
    EXPECT_EQ(far.product(), int64_t{1} << 62);
    EXPECT_EQ(far.squaredLength(), INT64_MIN);
    EXPECT_DOUBLE_EQ(far.length(), std::ldexp(std::sqrt(2), 31));
}

TEST(IVec, ConversionsStayInRange) {
    using Doubles = IVec4<double>;
    constexpr double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(IVec4<uint8_t>(Doubles(-1, 254.9, 300, NAN)), IVec4<uint8_t>(0, 254, 255, 0));
    EXPECT_EQ(IVec4<int64_t>(Doubles(-1e19, 0x1p63, inf, -2.9)), IVec4<int64_t>(INT64_MIN, INT64_MAX, INT64_MAX, -2));
    EXPECT_EQ(IVec4<int32_t>(IVec4<float>(-0x1p31f, 0x1p31f, -0.9f, 7)), IVec4<int32_t>(INT32_MIN, INT32_MAX, 0, 7));
    EXPECT_EQ(IVec2<uint8_t>(IVec2<int32_t>(-1, 257)), IVec2<uint8_t>(255, 1));
    EXPECT_EQ(IVec2<double>(IVec2<int8_t>(-1, 100)), IVec2<double>(-1, 100));
    static_assert(!std::convertible_to<IVec2<int>, IVec2<double>>);
    EXPECT_EQ(IVec2<double>(0.1, -1e300).toString(), "(0.1, -1e+300)");
    EXPECT_EQ(IVec2<float>(0.1f, -0.f).toString(), "(0.1, -0)");
    EXPECT_EQ(IVec3<double>(0, 3, 4).normalized(), IVec3<double>(0, 0.6, 0.8));
    EXPECT_TRUE(IVec3<float>().normalized().isZero() && std::signbit((-IVec2<float>()).x));
}

TEST(IVec, IsOrderedForMaps) {
    const std::set<IVec3<int>> all = {{1, 0, 0}, {0, 5, 1}, {0, 5, 0}, {0, 5, 1}, {-1, 9, 9}};
    EXPECT_EQ(std::vector<IVec3<int>>(all.begin(), all.end()),
              (std::vector<IVec3<int>>{{-1, 9, 9}, {0, 5, 0}, {0, 5, 1}, {1, 0, 0}}));
    EXPECT_FALSE(IVec2<double>(NAN, 0) == IVec2<double>(NAN, 0));
}

} // namespace
} // namespace kiv
