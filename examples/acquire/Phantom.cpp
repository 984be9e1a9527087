#include "Phantom.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace {

struct Ellipsoid {
    double density;
    double a, b, c; // half axes
    double x, y, z; // centre
    double degrees; // rotation about the z axis
};

constexpr Ellipsoid ellipsoids[] = {
    {1.0, 0.6900, 0.9200, 0.8100, 0.00, 0.0000, 0.00, 0},    {-0.8, 0.6624, 0.8740, 0.7800, 0.00, -0.0184, 0.00, 0},
    {-0.2, 0.1100, 0.3100, 0.2200, 0.22, 0.0000, 0.00, -18}, {-0.2, 0.1600, 0.4100, 0.2800, -0.22, 0.0000, 0.00, 18},
    {0.1, 0.2100, 0.2500, 0.4100, 0.00, 0.3500, -0.15, 0},   {0.1, 0.0460, 0.0460, 0.0500, 0.00, 0.1000, 0.25, 0},
    {0.1, 0.0460, 0.0460, 0.0500, 0.00, -0.1000, 0.25, 0},   {0.1, 0.0460, 0.0230, 0.0500, -0.08, -0.6050, 0.00, 0},
    {0.1, 0.0230, 0.0230, 0.0200, 0.00, -0.6060, 0.00, 0},   {0.1, 0.0230, 0.0460, 0.0200, 0.06, -0.6050, 0.00, 0},
};

struct Rotation {
    double cosine, sine;
};

const auto rotations = [] {
    std::array<Rotation, std::size(ellipsoids)> all{};
    for (size_t i = 0; i < all.size(); ++i) {
        const double angle = ellipsoids[i].degrees * std::numbers::pi / 180;
        all[i] = {std::cos(angle), std::sin(angle)};
    }
    return all;
}();

double densityAt(double x, double y, double z) {
    double density = 0;
    for (size_t i = 0; i < std::size(ellipsoids); ++i) {
        const Ellipsoid& e = ellipsoids[i];
        const double w = (z - e.z) / e.c;
        if (w * w > 1) continue;
        const double dx = x - e.x, dy = y - e.y;
        const double u = (dx * rotations[i].cosine + dy * rotations[i].sine) / e.a;
        const double v = (dy * rotations[i].cosine - dx * rotations[i].sine) / e.b;
        if (u * u + v * v + w * w <= 1) density += e.density;
    }
    return density;
}

// Of point `part` of `parts` in cell `cell` of `cells`, from -1 to 1.
double coordinateOf(uint32_t cell, unsigned part, unsigned parts, uint32_t cells) {
    return 2 * (cell + (part + 0.5) / parts) / cells - 1;
}

} // namespace

uint32_t Phantom::sampleAt(uint32_t x, uint32_t y, uint32_t slice) const {
    double sum = 0;
    for (unsigned k = 0; k < m_oversampling; ++k) {
        for (unsigned j = 0; j < m_oversampling; ++j) {
            for (unsigned i = 0; i < m_oversampling; ++i) {
                // The first row is the top of the picture.
                sum +=
                    densityAt(coordinateOf(x, i, m_oversampling, m_size), -coordinateOf(y, j, m_oversampling, m_size),
                              coordinateOf(slice, k, m_oversampling, m_slices));
            }
        }
    }
    const double mean = sum / (m_oversampling * m_oversampling * m_oversampling);
    return static_cast<uint32_t>(std::lround(std::clamp(mean, 0.0, 1.0) * m_maximum));
}

// Evenly between minus and plus the noise.
uint32_t Phantom::withNoise(uint32_t sample, uint32_t x, uint32_t y, uint32_t slice, uint32_t noise) const {
    const int64_t most = int64_t{m_maximum} * noise / 1000;
    if (most == 0) return sample;
    uint64_t mixed = (uint64_t{slice} << 32 | uint64_t{y} << 16 | x) * 0x9E3779B97F4A7C15;
    mixed = (mixed ^ mixed >> 29) * 0xBF58476D1CE4E5B9;
    const auto part = static_cast<int64_t>((mixed >> 32) % static_cast<uint64_t>(2 * most + 1)) - most;
    return static_cast<uint32_t>(std::clamp<int64_t>(sample + part, 0, m_maximum));
}
