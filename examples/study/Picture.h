#pragma once

#include "examples/study/Study.h"

#include <cstdint>
#include <string>

// One slice as a picture for files and for people.

// Writes a binary PGM file, 8 or 16 bit, at the UTF-8 path; false when it can't be written.
bool writePgm(const std::string& path, const study::Geometry& geometry, const uint8_t* samples);

enum class DrawingStyle {
    Characters, // no escape sequences
    Greys,      // 24 steps, of the palette of 256 colours
    Rgb,
};

// The slice as lines of text, at most `columns` wide. In colour each character is a half block: two pixels, one above
// the other. Brightness follows the eye: the square root of the samples.
std::string drawSlice(const study::Geometry& geometry, const uint8_t* samples, unsigned columns, DrawingStyle style);
