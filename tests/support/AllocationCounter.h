#pragma once

#include <cstddef>

// Counts what operator new hands out in this process, and makes it fail; the library's share included where one
// program's operator new serves its shared libraries too (not on Windows). Single-threaded use.
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

// While it lives, so many allocations succeed and as many as `failures` after them do not.
class AllocationFault {
public:
    static constexpr size_t forever = ~size_t{0};
    explicit AllocationFault(size_t successes, size_t failures = forever);
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
    ~AllocationFault();

    // Whether an allocation failed.
    bool happened() const;
};

} // namespace support
