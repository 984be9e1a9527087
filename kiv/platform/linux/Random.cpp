#include "kiv/platform/Random.h"

#include <cerrno>

#include <sys/random.h>

namespace kiv::platform {

bool systemRandomBytes(void* to, size_t size) {
    auto* at = static_cast<unsigned char*>(to);
    while (size > 0) {
        const ssize_t count = ::getrandom(at, size, 0);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        at += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

} // namespace kiv::platform
