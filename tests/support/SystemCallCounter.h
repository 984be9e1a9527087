#pragma once

#include <cstddef>

// Counts the calls the library makes of the system's syscall(), by which it sleeps and wakes threads.
namespace support {

// False where they can't be counted.
bool countsSystemCalls();
// Of the calling thread.
size_t systemCallCount();

template <class Work>
size_t systemCallsOf(Work work) {
    const size_t before = systemCallCount();
    work();
    return systemCallCount() - before;
}

} // namespace support
