#include "kiv/platform/Cpu.h"

#include <cpuid.h>

namespace kiv::internal {

SimdLevel supportedSimdLevel() {
    // Needed when a static constructor asks before the compiler's run time has looked; it asks the system, too.
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("sse4.2") || !__builtin_cpu_supports("popcnt")) return SimdLevel::Portable;
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    const bool lzcnt = __get_cpuid(0x80000001, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_LZCNT) != 0;
    const bool bmi = __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
    return __builtin_cpu_supports("avx2") && bmi && lzcnt ? SimdLevel::Avx2 : SimdLevel::Sse4;
}

} // namespace kiv::internal
