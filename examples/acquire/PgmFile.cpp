#include "PgmFile.h"

#include <filesystem>
#include <fstream>

namespace {

// A decimal number behind white space and comments, which run from "#" to the end of the line.
bool readNumber(std::istream& file, uint32_t limit, uint32_t& out) {
    int c = file.get();
    while (c == '#' || c == ' ' || (c >= '\t' && c <= '\r')) {
        if (c == '#') {
            while (c != '\n' && c != EOF) c = file.get();
        }
        c = file.get();
    }
    if (c < '0' || c > '9') return false;
    uint64_t number = 0;
    for (; c >= '0' && c <= '9'; c = file.get()) {
        number = number * 10 + static_cast<unsigned>(c - '0');
        if (number > limit) return false;
    }
    out = static_cast<uint32_t>(number);
    return c == ' ' || (c >= '\t' && c <= '\r'); // exactly one, then the samples begin
}

} // namespace

bool PgmFile::readHeader(std::istream& file) {
    return file.get() == 'P' && file.get() == '5' && readNumber(file, 65536, width) &&
           readNumber(file, 65536, height) && readNumber(file, 65535, maximum) && width > 0 && height > 0 &&
           maximum > 0;
}

std::string PgmFile::read(const std::string& path) {
    std::ifstream file(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
    if (!file.is_open()) return "it can't be opened";
    if (!readHeader(file)) return "it is no binary grey map (\"P5\") of at most 65536 x 65536 pixels and 16 bits";
    // In pieces: the file may be shorter than its header says, and the memory is taken only for what is there.
    const unsigned sampleSize = maximum > 0xFF ? 2 : 1;
    const uint64_t size = uint64_t{width} * height * sampleSize;
    constexpr uint64_t piece = 1 << 20;
    while (samples.size() < size) {
        const uint64_t offset = samples.size(), count = std::min(piece, size - offset);
        samples.resize(static_cast<size_t>(offset + count));
        if (!file.read(reinterpret_cast<char*>(samples.data()) + offset, static_cast<std::streamsize>(count)))
            return "it ends before its last pixel";
    }
    for (size_t i = 0; sampleSize == 2 && i < samples.size(); i += 2) {
        const auto sample = static_cast<uint16_t>(samples[i] << 8 | samples[i + 1]);
        samples[i] = static_cast<uint8_t>(sample & 0xFF);
        samples[i + 1] = static_cast<uint8_t>(sample >> 8);
    }
    return {};
}
