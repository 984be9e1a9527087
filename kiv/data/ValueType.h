#pragma once

#include <cstdint>

namespace kiv {

// The type byte that every element of an Item begins with. Codes not listed here are invalid.
// The four integer codes are one logical type: writers pick the shortest, readers and comparison treat them alike.
enum class ValueType : uint8_t {
    Invalid = 0,
    Int64 = 1,
    Float = 2,
    String = 3,
    Buffer = 4,
    Pointer = 5,
    Int32 = 6,
    Int16 = 7,
    Int8 = 8,
    SubItem = 9,
    GUID = 10,
    NIL = 11,
    Prefix = 12,
    False = 13,
    True = 14,
    Meta = 192,
    Referee = 193,
    Wildcard = 254,
    End = 255,
};

// What a reader may make of bytes. Compiled script functions are not verified when they are loaded, and run with all
// that scripts may do: trust them only where the program itself has written them.
enum class Trust : uint8_t { Data, Code };

} // namespace kiv
