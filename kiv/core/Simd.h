#pragma once

#include "kiv/platform/Cpu.h"

#include <cstddef>

namespace kiv::internal {

// The level whose kernels run now: the supported one, unless setSimdLevel() chose a lower one. Any thread, also before
// main().
KIV_API SimdLevel activeSimdLevel();

// Lets tests and benchmarks compare the levels; all give the same results. A level above the supported one is lowered
// to it. Process-wide.
KIV_API void setSimdLevel(SimdLevel level);

// One kernel table per level.
template <class Kernels>
using KernelTables = const Kernels* [3];

template <class Kernels>
const Kernels& activeKernels(const KernelTables<Kernels>& tables) {
    return *tables[static_cast<size_t>(activeSimdLevel())];
}

} // namespace kiv::internal
