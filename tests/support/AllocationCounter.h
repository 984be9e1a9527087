#pragma once

#include <cstddef>

// Counts what operator new hands out in this process, the library's share included where one program's operator new
// serves its shared libraries too (not on Windows). Single-threaded use.
namespace support {

bool countsLibraryAllocations();
size_t allocationCount();

// The allocations made by `work`.
template <class Work>
size_t allocationsOf(Work work) {
    const size_t before = allocationCount();
    work();
    return allocationCount() - before;
}

} // namespace support
