// Hunts: names that change from build to build.
#include "kiv/data/GUID.h"

#include "kiv/core/Fnv.h"

#include <gtest/gtest.h>

namespace {

using kiv::GUID;

TEST(GUID, HasAFantasyName) {
    EXPECT_EQ(kiv::internal::fnv1a32(nullptr, 0), 0x811C9DC5u);
    EXPECT_EQ(kiv::internal::fnv1a32(reinterpret_cast<const uint8_t*>("foobar"), 6), 0xBF9CF968u);
    const auto is = [](const GUID& guid, const char* name) { EXPECT_EQ(guid.getFantasyName(), name); };
    is(GUID(), "god"), is(GUID(1, 0, 0, 0), "bellguiusy"), is(GUID(2, 0, 0, 0), "guiusimus");
    is(GUID(301, 0, 0, 0), "xanadur"), is(GUID(1, 2, 3, 4), "belguiusator");
}

} // namespace
