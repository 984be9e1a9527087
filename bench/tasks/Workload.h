#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// What the tasks do.
namespace bench {

// The empty task: it counts, for the race to know that all have run, in a place of its thread's own.
void countRun();
// By all threads.
uint64_t runsCounted();

// Ten million integers, whose sum costs little but the memory they are read from.
const std::vector<uint32_t>& integers();
uint32_t sumOf(const uint32_t* begin, const uint32_t* end);
// The part of that index, of so many of about equal size.
uint32_t sumOfPart(unsigned index, unsigned parts);

// Processor time of all threads of this process.
double processSeconds();

} // namespace bench
