// Hunts: names that change from build to build.
#include "kiv/data/GUID.h"

#include "kiv/core/Fnv.h"

#include <gtest/gtest.h>

namespace {

using kiv::GUID;

TEST(GUID, HasAFantasyName) {
    EXPECT_EQ(kiv::internal::fnv1a32(nullptr, 0), 0x811C9DC5u);
    EXPECT_EQ(kiv::internal::fnv1a32(reinterpret_cast<const uint8_t*>("foobar"), 6), 0xBF9CF968u);
    EXPECT_EQ(GUID().getFantasyName(), "god");
    EXPECT_EQ(GUID(1, 0, 0, 0).getFantasyName(), "bellguiusy");
    EXPECT_EQ(GUID(2, 0, 0, 0).getFantasyName(), "guiusimus");
    EXPECT_EQ(GUID(301, 0, 0, 0).getFantasyName(), "xanadur");
    EXPECT_EQ(GUID(1, 2, 3, 4).getFantasyName(), "belguiusator");
}

} // namespace
