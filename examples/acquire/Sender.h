#pragma once

#include "Volume.h"
#include "examples/study/Study.h"

#include "kiv/data/Item.h"
#include "kiv/data/StdOutPacketWriter.h"

#include <functional>
#include <vector>

// Sends a study, or what is wanted of it, as packets on standard output.
class Sender {
public:
    // The first devices sent tiles without checksums.
    Sender(Volume& volume, study::TileScheme::Generation generation)
        : m_scheme(generation), m_volume(volume), m_geometry(volume.getGeometry()), m_about(volume.describe()) {}

    // Names this process.
    void sendHello();
    // The tiles, slice by slice, and the end. Asks before each slice whether to go on. False when it was not to, or
    // when nobody takes packets any more.
    bool send(const std::vector<study::TileRange>& wanted, const std::function<bool()>& goesOn);
    uint64_t getSentTiles() const { return m_tiles; }

private:
    void sendTile(const uint8_t* slice, uint64_t index);
    void sendEnd();

    const study::TileScheme m_scheme;
    const study::EndScheme m_endScheme;
    Volume& m_volume;
    const study::Geometry m_geometry;
    const kiv::Item m_about;
    const kiv::SmartPointer<kiv::StdOutPacketWriter> m_writer = kiv::makeObject<kiv::StdOutPacketWriter>();
    std::vector<uint8_t> m_samples; // of one tile
    uint64_t m_tiles = 0;
};
