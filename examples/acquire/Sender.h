#pragma once

#include "Volume.h"
#include "examples/study/Study.h"

#include "kiv/data/Item.h"
#include "kiv/data/StdOutPacketWriter.h"

#include <vector>

// Sends a study, or what is wanted of it, as packets on standard output.
class Sender {
public:
    // The first devices sent tiles without checksums.
    Sender(Volume& volume, study::TileScheme::Generation generation)
        : m_scheme(generation), m_volume(volume), m_geometry(volume.getGeometry()), m_about(volume.describe()) {}

    // Names this process.
    void sendHello();
    // Of which tiles sendSlice() takes. Their number.
    uint64_t setWanted(const std::vector<study::TileRange>& wanted);
    bool wants(uint32_t slice) const;
    // Acquires the slice, and sends what is wanted of it.
    void sendSlice(uint32_t slice);
    // The last word on the whole study.
    void sendEnd();
    // All of it; false when nobody took it.
    bool sendAll();
    uint64_t getSentTiles() const { return m_tiles; }

private:
    void sendTile(const uint8_t* slice, uint64_t index);

    const study::TileScheme m_scheme;
    const study::EndScheme m_endScheme;
    Volume& m_volume;
    const study::Geometry m_geometry;
    const kiv::Item m_about;
    const kiv::SmartPointer<kiv::StdOutPacketWriter> m_writer = kiv::makeObject<kiv::StdOutPacketWriter>();
    std::vector<bool> m_isWanted;   // of all tiles
    std::vector<uint8_t> m_samples; // of one tile
    uint64_t m_tiles = 0;
};
