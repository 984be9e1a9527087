#pragma once

#include "kiv/platform/Compiler.h"

#include <atomic>
#include <cstdint>

namespace kiv::platform {

// Sleeps while `word` holds `expected`, at most until somebody wakes the address; may return early for no reason.
KIV_API void waitOnAddress(const std::atomic<uint32_t>& word, uint32_t expected);

// Wake one or all who sleep on the address. Only the address is used: the word itself may be gone already.
KIV_API void wakeOneOnAddress(const std::atomic<uint32_t>* word);
KIV_API void wakeAllOnAddress(const std::atomic<uint32_t>* word);

} // namespace kiv::platform
