#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

// The work of the race. Build: from a frame in the program's own memory to bytes that can be sent, in a buffer that is
// used again. Fit: check received bytes, so that every field may be read. Find: read the numbers and find text and
// arrays with their lengths.
namespace bench {

struct Frame {
    uint32_t number = 4711;
    uint64_t time = 1732190000123456;
    uint16_t width = 40;
    uint16_t height = 25;
    float gain = 1.5f;
    double exposure = 0.0625;
    std::string note = std::string(63, 'n'); // 64 bytes with its end
    std::array<uint16_t, 1000> pixels{};
    std::array<uint8_t, 4096> raw{};

    Frame() {
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint16_t>(i * 40503);
        for (size_t i = 0; i < raw.size(); ++i) raw[i] = static_cast<uint8_t>(i * 37 + 11);
    }
};

// What was found, as one number that depends on every field.
struct Found {
    uint64_t number, time, width, height;
    double gain, exposure;
    const char* note;
    const void* pixels;
    size_t pixelBytes;
    const void* raw;
    size_t rawBytes;

    bool isOf(const Frame& frame) const {
        return number == frame.number && time == frame.time && width == frame.width && height == frame.height &&
               gain == static_cast<double>(frame.gain) && exposure == frame.exposure && frame.note == note &&
               pixelBytes == 2000 && std::memcmp(pixels, frame.pixels.data(), 2000) == 0 && rawBytes == 4096 &&
               std::memcmp(raw, frame.raw.data(), 4096) == 0;
    }
};

} // namespace bench
