#pragma once

#include "kiv/platform/Compiler.h"

#include <cstddef>
#include <functional>
#include <string>

// Byte values in the machine-wide part of the system's registry. Where there is none (all systems but Windows) every
// call fails. Names are UTF-8; one that is not, or has a zero byte inside, fails.

namespace kiv::platform {

// Creates the key with those above it where they are missing, and creates or replaces the value.
KIV_API bool writeRegistryValue(const std::string& keyPath, const std::string& valueName, const void* bytes,
                                size_t size);

// Gives room for `size` bytes, at least one, and returns the first. What is thrown here passes through.
using RegistrySpace = std::function<void*(size_t size)>;

// Reads the value whole, into one call's space. False when there is none, when it is of another type than bytes, empty,
// or changes its size meanwhile.
KIV_API bool readRegistryValue(const std::string& keyPath, const std::string& valueName, const RegistrySpace& space);

} // namespace kiv::platform
