#pragma once

#include "kiv/data/PacketScheme.h"

#include <algorithm>
#include <cstdint>

// What the device's worker process and its receiver have agreed upon.

namespace study {

// Tiles one after another.
struct TileRange {
    uint32_t first;
    uint32_t count;
};
// What asks for a study of which nothing is known yet.
constexpr TileRange allTiles{0, UINT32_MAX};

// A study as every tile describes it: slices of equal size, each cut into square tiles that are numbered row by row,
// slice after slice. Samples have one byte where `maximum` fits one, else two.
struct Geometry {
    static constexpr uint32_t largestSide = 65536, largestSlices = 65536, largestTile = 1024;
    static constexpr uint64_t largestStudy = uint64_t{1} << 30;

    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t slices = 0;
    uint32_t tileSize = 0;
    uint32_t maximum = 0;

    struct Tile {
        uint32_t slice, x, y, width, height;
    };

    bool operator==(const Geometry&) const = default;

    // Everything below requires this.
    bool isValid() const {
        return width >= 1 && width <= largestSide && height >= 1 && height <= largestSide && slices >= 1 &&
               slices <= largestSlices && tileSize >= 1 && tileSize <= largestTile && maximum >= 1 &&
               maximum <= 0xFFFF && getBytes() <= largestStudy && getTiles() <= UINT32_MAX;
    }
    unsigned getSampleSize() const { return maximum > 0xFF ? 2 : 1; }
    uint64_t getSliceBytes() const { return uint64_t{width} * height * getSampleSize(); }
    uint64_t getBytes() const { return getSliceBytes() * slices; }
    uint64_t getTilesAcross() const { return (uint64_t{width} + tileSize - 1) / tileSize; }
    uint64_t getTilesDown() const { return (uint64_t{height} + tileSize - 1) / tileSize; }
    uint64_t getTiles() const { return getTilesAcross() * getTilesDown() * slices; }
    // Requires: index < getTiles().
    Tile getTile(uint64_t index) const {
        const uint64_t across = getTilesAcross(), row = index / across;
        Tile tile{};
        tile.slice = static_cast<uint32_t>(row / getTilesDown());
        tile.x = static_cast<uint32_t>(index % across) * tileSize;
        tile.y = static_cast<uint32_t>(row % getTilesDown()) * tileSize;
        tile.width = std::min(tileSize, width - tile.x);
        tile.height = std::min(tileSize, height - tile.y);
        return tile;
    }
    uint64_t getTilesOfSlice() const { return getTilesAcross() * getTilesDown(); }
    // Of the tile's row in all samples of the study.
    uint64_t getRowOffset(const Tile& tile, uint32_t row) const {
        const uint64_t line = uint64_t{tile.slice} * height + tile.y + row;
        return (line * width + tile.x) * getSampleSize();
    }
};

// One tile. The first devices sent it without checksum; what they send is still understood. The newest version is that
// of a table's entries: whoever keeps tiles in one gives them their names.
struct TileScheme : kiv::PacketScheme {
    enum class Generation { First, Checked, Newest };
    static constexpr int64_t noChecksum = -1;
    static constexpr unsigned largestSampleCount = Geometry::largestTile * Geometry::largestTile;

    explicit TileScheme(Generation generation = Generation::Newest)
        : PacketScheme(201, "Example", "Acquisition", "Tile") {
        if (generation == Generation::First) return;
        NextVersion();
        checksum = Number<int64_t>("checksum", noChecksum);
        if (generation == Generation::Checked) return;
        NextVersion();
        id = Table();
    }

    const Field about = Item("about", UpTo(65536)); // a table: of what the study is, and which series of it
    const Field width = Number<uint32_t>("width");
    const Field height = Number<uint32_t>("height");
    const Field slices = Number<uint32_t>("slices");
    const Field tileSize = Number<uint32_t>("tileSize");
    const Field maximum = Number<uint32_t>("maximum");
    const Field index = Number<uint32_t>("index");
    // One of them, depending on the maximum.
    const Field samples8 = Buffer("samples8", UpTo(largestSampleCount));
    const Field samples16 = Numbers<uint16_t>("samples16", UpTo(largestSampleCount));
    // CRC-32C of the samples.
    Field checksum;
    // The name of the entry; null in what comes from a device.
    Field id;
};

// The sender's last word, when all that was asked for has been sent. Without it the study has been cut off.
struct EndScheme : kiv::PacketScheme {
    EndScheme() : PacketScheme(202, "Example", "Acquisition", "End") {}

    const Field tiles = Number<uint32_t>("tiles");
    const Field checksum = Number<uint32_t>("checksum"); // CRC-32C of all samples, slice by slice, row by row
};

// What a host wants from a device: the tiles it has not got. They come in ascending order, and behind them the last
// word on the whole study. A new request takes the place of the one before.
struct RequestScheme : kiv::PacketScheme {
    static constexpr unsigned largestRangeCount = 4096;

    RequestScheme() : PacketScheme(203, "Example", "Acquisition", "Request") {}

    // Pairs: the first tile of a range, and how many there are, which may be more than the study has.
    const Field ranges = Numbers<uint32_t>("ranges", UpTo(2 * largestRangeCount));
};

// The first word of a device that waits for requests.
struct HelloScheme : kiv::PacketScheme {
    HelloScheme() : PacketScheme(204, "Example", "Acquisition", "Hello") {}

    const Field processId = Number<int64_t>("processId");
};

} // namespace study
