#pragma once

#include "kiv/platform/Compiler.h"

namespace kiv::internal {

// Sets of vector instructions, each containing those before it.
enum class SimdLevel {
    Portable, // what every x86-64 processor has
    Sse4,     // up to SSE4.2, and POPCNT
    Avx2      // and BMI1, BMI2, LZCNT
};

// The highest level that processor and operating system support together. Asks them on every call.
KIV_API SimdLevel supportedSimdLevel();

} // namespace kiv::internal
