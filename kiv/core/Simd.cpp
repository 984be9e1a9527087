#include "kiv/core/Simd.h"

#include <algorithm>
#include <atomic>

namespace kiv::internal {
namespace {

constexpr int unknown = -1;
// Constant-initialised, so that static constructors of other files may use the kernels.
constinit std::atomic<int> active{unknown};

// Asking takes microseconds on a virtual machine.
int supportedOnce() {
    static const int level = static_cast<int>(supportedSimdLevel());
    return level;
}

KIV_NOINLINE SimdLevel findLevel() {
    int level = unknown;
    const bool first = active.compare_exchange_strong(level, supportedOnce());
    return static_cast<SimdLevel>(first ? supportedOnce() : level);
}

} // namespace

SimdLevel activeSimdLevel() {
    const int level = active.load(std::memory_order_relaxed);
    return level != unknown ? static_cast<SimdLevel>(level) : findLevel();
}

void setSimdLevel(SimdLevel level) {
    active = std::min(static_cast<int>(level), supportedOnce());
}

} // namespace kiv::internal
