#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv::internal {

// The 32-bit FNV-1a hash. One dependent multiplication a byte, so meant for short runs of them.
constexpr uint32_t fnv1a32(const uint8_t* bytes, size_t size) {
    uint32_t hash = 0x811C9DC5;
    for (size_t i = 0; i < size; ++i) hash = (hash ^ bytes[i]) * 0x01000193;
    return hash;
}

} // namespace kiv::internal
