#include "kiv/platform/Random.h"

#include <windows.h>

#include <algorithm>
#include <bcrypt.h>

namespace kiv::platform {

bool systemRandomBytes(void* to, size_t size) {
    auto* at = static_cast<UCHAR*>(to);
    while (size > 0) {
        const auto step = static_cast<ULONG>(std::min<size_t>(size, 1 << 30));
        if (::BCryptGenRandom(nullptr, at, step, BCRYPT_USE_SYSTEM_PREFERRED_RNG) < 0) return false;
        at += step;
        size -= step;
    }
    return true;
}

} // namespace kiv::platform
