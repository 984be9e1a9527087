#pragma once

#include "examples/common/Study.h"

#include "kiv/data/Item.h"
#include "kiv/data/StdOutPacketWriter.h"

#include <vector>

// Sends a study, slice by slice, as packets on standard output.
class Sender {
public:
    // The scheme and the writer outlive the sender. Requires: geometry.isValid().
    Sender(const study::TileScheme& scheme, const study::Geometry& geometry, const kiv::Item& about,
           kiv::PacketWriter& writer)
        : m_scheme(scheme), m_geometry(geometry), m_about(about), m_writer(writer) {}

    // The next slice: width * height samples. False when nobody takes them any more.
    bool sendSlice(const uint8_t* samples);
    // Behind the last slice.
    bool sendEnd();
    uint32_t getSentTiles() const { return m_tiles; }

private:
    void sendTile(const uint8_t* slice);

    const study::TileScheme& m_scheme;
    const study::EndScheme m_endScheme;
    const study::Geometry m_geometry;
    const kiv::Item m_about;
    kiv::PacketWriter& m_writer;
    std::vector<uint8_t> m_samples; // of one tile
    uint32_t m_tiles = 0;
    uint32_t m_checksum = 0;
};
