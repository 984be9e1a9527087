#include "kiv/platform/AddressWait.h"

#include <windows.h>

namespace kiv::platform {

void waitOnAddress(const std::atomic<uint32_t>& word, uint32_t expected) {
    // The call only compares, but wants the address without const.
    ::WaitOnAddress(const_cast<std::atomic<uint32_t>*>(&word), &expected, sizeof expected, INFINITE);
}

void wakeOneOnAddress(const std::atomic<uint32_t>* word) {
    ::WakeByAddressSingle(const_cast<std::atomic<uint32_t>*>(word));
}

void wakeAllOnAddress(const std::atomic<uint32_t>* word) {
    ::WakeByAddressAll(const_cast<std::atomic<uint32_t>*>(word));
}

} // namespace kiv::platform
