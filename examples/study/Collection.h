#pragma once

#include "examples/study/Study.h"

#include "kiv/data/Item.h"
#include "kiv/data/Packet.h"

#include <cstdint>
#include <optional>
#include <vector>

// A study put together from its packets, which come from outside: nothing they say is believed unchecked.
class Collection {
public:
    enum class Result { Taken, Refused, Repeated };

    // A raw packet. Taken ones are fitted then; refusals are logged.
    Result take(kiv::Packet& packet);
    // The same for a packet that was kept: whether it is a part of what was collected, bit for bit.
    bool confirms(kiv::Packet& packet) const;

    const study::TileScheme& getTileScheme() const { return m_tileScheme; }
    const study::EndScheme& getEndScheme() const { return m_endScheme; }

    // Null before the first tile.
    const study::Geometry* getGeometry() const { return m_geometry ? &*m_geometry : nullptr; }
    const kiv::Item& getAbout() const { return m_about; }
    uint64_t getReceivedTiles() const { return m_receivedTiles; }
    uint64_t getMissingTiles() const { return m_geometry ? m_geometry->getTiles() - m_receivedTiles : 0; }
    // What to ask for: the tiles that are missing. When these are in too many ranges, the last one goes to the end.
    std::vector<study::TileRange> getMissingRanges() const;
    bool hasSlice(uint32_t slice) const;
    // Of tiles that came without checksum.
    uint64_t getUncheckedTiles() const { return m_uncheckedTiles; }
    bool hasEnd() const { return m_end.has_value(); }
    // Whether all there is has the checksum that the sender's last word gives.
    bool agreesWithSender() const;
    // The samples of a slice, 16-bit ones in the byte order of this machine. Missing ones are 0.
    const uint8_t* getSlice(uint32_t slice) const { return m_samples.data() + m_geometry->getSliceBytes() * slice; }

private:
    struct Tile {
        study::Geometry geometry;
        uint64_t index;
        kiv::ConstByteSpan samples;
        int64_t checksum;
    };
    struct End {
        uint64_t tiles;
        uint32_t checksum;
    };

    Result takeTile(kiv::Packet& packet);
    Result takeEnd(kiv::Packet& packet);
    // The fields of a fitted packet; false, and a log line, when they contradict each other or the study so far.
    bool readTile(const kiv::Packet& packet, Tile& tile) const;
    bool isSame(const Tile& tile) const;

    const study::TileScheme m_tileScheme;
    const study::EndScheme m_endScheme;
    std::optional<study::Geometry> m_geometry;
    kiv::Item m_about;
    std::vector<uint8_t> m_samples;
    std::vector<bool> m_hasTile;
    uint64_t m_receivedTiles = 0;
    uint64_t m_uncheckedTiles = 0;
    std::optional<End> m_end;
};
