#include "kiv/platform/AddressWait.h"

#include <climits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kiv::platform {

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

void waitOnAddress(const std::atomic<uint32_t>& word, uint32_t expected) {
    ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

void wakeOneOnAddress(const std::atomic<uint32_t>* word) {
    ::syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void wakeAllOnAddress(const std::atomic<uint32_t>* word) {
    ::syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace kiv::platform
