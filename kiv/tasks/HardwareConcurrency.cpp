#include "kiv/tasks/HardwareConcurrency.h"

#include <algorithm>
#include <thread>

namespace kiv {

unsigned getHardwareConcurrency() {
    static const unsigned concurrency = std::max(1u, std::thread::hardware_concurrency());
    return concurrency;
}

} // namespace kiv
