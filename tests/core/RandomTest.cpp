// Hunts: sources that repeat each other, numbers that differ between systems, a seeded source that outstays its life,
// bytes of the system that stop short.
#include "kiv/core/Random.h"
#include "kiv/platform/Random.h"

#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace kiv {
namespace {

TEST(Random, RepeatsForTheSameSeedAndForNothingElse) {
    auto draw = [] { return Random::current().randomUInt64(); };
    std::set<uint64_t> seen;
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(seen.insert(draw()).second);
    {
        // The values were computed apart from the library.
        SeededRandom outer(0);
        EXPECT_EQ(draw(), 0x53175d61490b23df);
        {
            SeededRandom inner(2);
            EXPECT_NE(draw(), 0x53175d61490b23df);
        }
        EXPECT_EQ(Random::current().randomUInt(), 0x61da6f3du); // the upper half
        SeededRandom again(0);
        EXPECT_TRUE(draw() == 0x53175d61490b23df && draw() == 0x61da6f3dc380d507);
    }
    EXPECT_TRUE(seen.insert(draw()).second); // the system's again
}

TEST(Random, TakesAnyNumberOfBytesFromTheSystem) {
    EXPECT_TRUE(platform::systemRandomBytes(nullptr, 0));
    std::vector<unsigned char> bytes(100001); // more than one call of the system may give
    ASSERT_TRUE(platform::systemRandomBytes(bytes.data(), 100000));
    std::vector<int> counts(256);
    for (size_t i = 0; i < 100000; ++i) ++counts[bytes[i]];
    for (int count : counts) EXPECT_NEAR(count, 391, 200);
    EXPECT_EQ(bytes[100000], 0);
}

} // namespace
} // namespace kiv
