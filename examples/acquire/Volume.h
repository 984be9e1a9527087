#pragma once

#include "Phantom.h"
#include "examples/study/Study.h"

#include "kiv/data/Item.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// What the device sees: a phantom whose slices are computed when they are asked for, or a picture.
class Volume {
public:
    struct Options {
        uint32_t size = 256;
        uint32_t slices = 64;
        unsigned bits = 16;
        unsigned oversampling = 2;
        std::string image; // the UTF-8 path of a PGM file; empty for the phantom
        uint32_t tileSize = 64;
        unsigned pace = 0; // milliseconds that a slice takes at least
    };

    // An empty text, or why there is nothing to see.
    std::string open(const Options& options);

    const study::Geometry& getGeometry() const { return m_geometry; }
    const char* getKind() const { return m_phantom ? "phantom" : "picture"; }
    // Of the phantom, in thousandths of the greatest sample; before the first slice is acquired. The same everywhere:
    // a device that takes the place of another sees what that has seen.
    void setNoise(uint32_t noise) { m_noise = noise; }
    uint32_t getNoise() const { return m_noise; }
    // The study's, as every tile has it.
    kiv::Item describe() const;
    // width * height samples; takes its time.
    const uint8_t* acquireSlice(uint32_t slice);
    // CRC-32C of all slices.
    uint32_t getChecksum();

private:
    const uint8_t* getSlice(uint32_t slice);

    study::Geometry m_geometry;
    std::chrono::milliseconds m_pace{0};
    std::optional<Phantom> m_phantom;
    uint32_t m_noise = 0;
    std::vector<uint8_t> m_samples;
    std::vector<bool> m_hasSlice;
};
