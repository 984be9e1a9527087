#pragma once

#include <cstdint>
#include <string_view>

// What surrounds the blob in a store file; doc/formats/store-file.md describes it.
namespace kiv::internal {

inline constexpr std::string_view storeFileMark = "kivStore";
inline constexpr uint32_t storeFileVersion = 1;
inline constexpr unsigned storeFileHeader = 8 + sizeof storeFileVersion;
// No nested item begins so.
inline constexpr uint8_t storeFileEnd = 0xFF;
inline constexpr unsigned storeFileTrailer = 1 + sizeof(uint64_t) + sizeof(uint32_t);
// What is read or written at once, unless a single entry needs more.
inline constexpr unsigned storeFileBuffer = 1 << 18;

} // namespace kiv::internal
