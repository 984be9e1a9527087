#pragma once

#include <cstddef>

namespace kiv::internal {

enum class Zeros { Accept, Refuse };

// The scanning loops of Utf8.cpp, one table per instruction set; each gives exactly what the portable one gives.
struct Utf8Kernels {
    // Bytes up to the first one that strict decoding refuses, or up to the end: always whole code points.
    size_t (*validPrefix)(const char* text, size_t size);
    // The same, but a zero byte ends it too.
    size_t (*cleanPrefix)(const char* text, size_t size);
    // The number of code points. Requires: the text is valid.
    size_t (*countValid)(const char* text, size_t size);
};

extern const Utf8Kernels utf8Portable;
extern const Utf8Kernels utf8Sse4;
extern const Utf8Kernels utf8Avx2;

} // namespace kiv::internal
