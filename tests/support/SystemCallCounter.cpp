#include "tests/support/SystemCallCounter.h"

#if defined(__linux__)

#include <cstdarg>
#include <dlfcn.h>
#include <unistd.h>

namespace {

thread_local size_t t_calls = 0;

} // namespace

// Takes the place of the C library's for the whole program.
extern "C" long syscall(long number, ...) noexcept {
    static auto* const next = reinterpret_cast<long (*)(long, ...)>(::dlsym(RTLD_NEXT, "syscall"));
    ++t_calls;
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments) argument = va_arg(list, long);
    va_end(list);
    return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

namespace support {

bool countsSystemCalls() {
    return true;
}

size_t systemCallCount() {
    return t_calls;
}

} // namespace support

#else

namespace support {

bool countsSystemCalls() {
    return false;
}

size_t systemCallCount() {
    return 0;
}

} // namespace support

#endif
