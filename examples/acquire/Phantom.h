#pragma once

#include <cstdint>

// The head phantom of Shepp and Logan in three dimensions, with the higher contrast that is common today: ten
// ellipsoids whose densities add up, within the cube from -1 to 1.
class Phantom {
public:
    // Each pixel is the mean over `oversampling` cubed points.
    Phantom(uint32_t size, uint32_t slices, uint32_t maximum, unsigned oversampling)
        : m_size(size), m_slices(slices), m_maximum(maximum), m_oversampling(oversampling) {}

    // Densities from 0 to 1 become samples from 0 to the maximum, with so many thousandths of it as noise. Writes size
    // * size samples.
    template <class Sample>
    void drawSlice(uint32_t slice, Sample* to, uint32_t noise) const {
        for (uint32_t y = 0; y < m_size; ++y) {
            for (uint32_t x = 0; x < m_size; ++x)
                *to++ = static_cast<Sample>(withNoise(sampleAt(x, y, slice), x, y, slice, noise));
        }
    }

private:
    uint32_t withNoise(uint32_t sample, uint32_t x, uint32_t y, uint32_t slice, uint32_t noise) const;
    uint32_t sampleAt(uint32_t x, uint32_t y, uint32_t slice) const;

    const uint32_t m_size;
    const uint32_t m_slices;
    const uint32_t m_maximum;
    const unsigned m_oversampling;
};
