#include "Picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

constexpr std::string_view ramp = " .:-=+*#%@";
constexpr std::string_view upperHalfBlock = "\u2580";

uint32_t sampleOf(const study::Geometry& geometry, const uint8_t* samples, uint64_t index) {
    if (geometry.getSampleSize() == 1) return samples[index];
    uint16_t sample;
    std::memcpy(&sample, samples + 2 * index, sizeof sample);
    return sample;
}

// Grey steps from 0 to 255, each the mean of the samples it covers.
struct Reduced {
    unsigned columns;
    unsigned rows; // even
    std::vector<uint8_t> greys;

    uint8_t at(unsigned column, unsigned row) const { return greys[size_t{row} * columns + column]; }
};

uint8_t greyOf(const study::Geometry& geometry, const uint8_t* samples, const Reduced& grid, unsigned column,
               unsigned row) {
    const auto from = [](uint64_t cell, uint64_t cells, uint64_t size) { return cell * size / cells; };
    const auto to = [&from](uint64_t cell, uint64_t cells, uint64_t size) {
        return std::max(from(cell + 1, cells, size), from(cell, cells, size) + 1);
    };
    double sum = 0;
    uint64_t count = 0;
    for (uint64_t y = from(row, grid.rows, geometry.height); y < to(row, grid.rows, geometry.height); ++y) {
        for (uint64_t x = from(column, grid.columns, geometry.width); x < to(column, grid.columns, geometry.width);
             ++x, ++count)
            sum += sampleOf(geometry, samples, y * geometry.width + x);
    }
    const double mean = sum / static_cast<double>(count) / geometry.maximum;
    return static_cast<uint8_t>(std::lround(std::sqrt(std::clamp(mean, 0.0, 1.0)) * 255));
}

Reduced reduce(const study::Geometry& geometry, const uint8_t* samples, unsigned columns) {
    Reduced grid{std::min(std::max(columns, 1u), geometry.width), 0, {}};
    const double rows = static_cast<double>(grid.columns) * geometry.height / geometry.width;
    // A very tall picture is squeezed rather than scrolled for minutes.
    grid.rows = static_cast<unsigned>(std::clamp(std::ceil(rows / 2) * 2, 2.0, 4.0 * grid.columns + 2));
    for (unsigned row = 0; row < grid.rows; ++row) {
        for (unsigned column = 0; column < grid.columns; ++column)
            grid.greys.push_back(greyOf(geometry, samples, grid, column, row));
    }
    return grid;
}

std::string cellOf(uint8_t upper, uint8_t lower, DrawingStyle style) {
    switch (style) {
    case DrawingStyle::Characters:
        return std::string(1, ramp[static_cast<size_t>(upper + lower) * (ramp.size() - 1) / 510]);
    case DrawingStyle::Greys:
        return fmt::format("\x1b[38;5;{};48;5;{}m{}", 232 + upper * 23 / 255, 232 + lower * 23 / 255, upperHalfBlock);
    default:
        return fmt::format("\x1b[38;2;{0};{0};{0};48;2;{1};{1};{1}m{2}", upper, lower, upperHalfBlock);
    }
}

} // namespace

bool writePgm(const std::string& path, const study::Geometry& geometry, const uint8_t* samples) {
    std::vector<uint8_t> bytes(samples, samples + geometry.getSliceBytes());
    for (size_t i = 0; geometry.getSampleSize() == 2 && i < bytes.size(); i += 2) {
        uint16_t sample;
        std::memcpy(&sample, samples + i, sizeof sample);
        bytes[i] = static_cast<uint8_t>(sample >> 8); // the format puts the high byte first
        bytes[i + 1] = static_cast<uint8_t>(sample & 0xFF);
    }
    std::ofstream file(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
    file << fmt::format("P5\n{} {}\n{}\n", geometry.width, geometry.height, geometry.maximum);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    return !file.fail();
}

std::string drawSlice(const study::Geometry& geometry, const uint8_t* samples, unsigned columns, DrawingStyle style) {
    const Reduced grid = reduce(geometry, samples, columns);
    std::string text;
    for (unsigned row = 0; row + 1 < grid.rows; row += 2) {
        std::string line;
        for (unsigned column = 0; column < grid.columns; ++column)
            line += cellOf(grid.at(column, row), grid.at(column, row + 1), style);
        if (style == DrawingStyle::Characters) {
            line.erase(line.find_last_not_of(' ') + 1);
        } else {
            line += "\x1b[0m";
        }
        text += line + '\n';
    }
    return text;
}
