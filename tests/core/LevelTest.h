#pragma once

#include "kiv/core/Simd.h"

#include <gtest/gtest.h>

#include <string>

// A suite that runs once for every set of vector instructions; those that the processor lacks report themselves
// skipped.
class LevelTest : public testing::TestWithParam<kiv::internal::SimdLevel> {
protected:
    void SetUp() override {
        if (GetParam() > kiv::internal::supportedSimdLevel()) GTEST_SKIP() << "this processor lacks the instructions";
        kiv::internal::setSimdLevel(GetParam());
    }
    void TearDown() override { kiv::internal::setSimdLevel(kiv::internal::supportedSimdLevel()); }
};

inline auto allLevels() {
    using kiv::internal::SimdLevel;
    return testing::Values(SimdLevel::Portable, SimdLevel::Sse4, SimdLevel::Avx2);
}

inline std::string levelName(const testing::TestParamInfo<kiv::internal::SimdLevel>& info) {
    static constexpr const char* names[] = {"Portable", "Sse4", "Avx2"};
    return names[static_cast<size_t>(info.param)];
}
