#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A binary portable grey map, 8 or 16 bit.
struct PgmFile {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t maximum = 0;
    // Row by row from the top; 16-bit samples in the byte order of this machine.
    std::vector<uint8_t> samples;

    // An empty text, or why the file of this UTF-8 path can't be read.
    std::string read(const std::string& path);

private:
    bool readHeader(std::istream& file);
};
