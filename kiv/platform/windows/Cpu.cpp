#include "kiv/platform/Cpu.h"

#include <windows.h>

#include <intrin.h>

namespace kiv::internal {
namespace {

struct CpuidLeaf {
    int eax = 0, ebx = 0, ecx = 0, edx = 0;
};

// All zero when the processor does not know the leaf.
CpuidLeaf cpuidLeaf(unsigned leaf) {
    int registers[4] = {};
    __cpuid(registers, static_cast<int>(leaf & 0x80000000));
    if (static_cast<unsigned>(registers[0]) < leaf) return {};
    __cpuidex(registers, static_cast<int>(leaf), 0);
    return {registers[0], registers[1], registers[2], registers[3]};
}

template <class... Bits>
bool hasAll(int word, Bits... bits) {
    return ((static_cast<unsigned>(word) >> bits & 1) && ...);
}

} // namespace

SimdLevel supportedSimdLevel() {
    // SSSE3, SSE4.1, SSE4.2, POPCNT.
    if (!hasAll(cpuidLeaf(1).ecx, 9, 19, 20, 23)) return SimdLevel::Portable;
    // BMI1, AVX2, BMI2; LZCNT; and the system must save the wide registers when it switches threads.
    const bool avx2 = hasAll(cpuidLeaf(7).ebx, 3, 5, 8) && hasAll(cpuidLeaf(0x80000001).ecx, 5);
    const bool saved = (GetEnabledXStateFeatures() & XSTATE_MASK_AVX) != 0;
    return avx2 && saved ? SimdLevel::Avx2 : SimdLevel::Sse4;
}

} // namespace kiv::internal
