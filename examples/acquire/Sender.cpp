#include "Sender.h"

#include <crc32c/crc32c.h>

bool Sender::sendSlice(const uint8_t* samples) {
    m_checksum = crc32c::Extend(m_checksum, samples, static_cast<size_t>(m_geometry.getSliceBytes()));
    const uint64_t tiles = m_geometry.getTilesAcross() * m_geometry.getTilesDown();
    for (uint64_t i = 0; i < tiles && m_writer.valid(); ++i) sendTile(samples);
    return m_writer.valid();
}

void Sender::sendTile(const uint8_t* slice) {
    const study::Geometry::Tile tile = m_geometry.getTile(m_tiles);
    const size_t rowSize = size_t{tile.width} * m_geometry.getSampleSize();
    m_samples.resize(rowSize * tile.height);
    for (uint32_t row = 0; row < tile.height; ++row) {
        const uint64_t offset =
            m_geometry.getRowOffset(tile, row) - m_geometry.getSliceBytes() * tile.slice; // within the slice
        std::copy_n(slice + offset, rowSize, m_samples.begin() + static_cast<ptrdiff_t>(row * rowSize));
    }

    const auto packet = kiv::makeObject<kiv::Packet>(&m_scheme, short{0});
    packet->setItem(m_scheme.about, m_about);
    packet->setInteger(m_scheme.width, m_geometry.width);
    packet->setInteger(m_scheme.height, m_geometry.height);
    packet->setInteger(m_scheme.slices, m_geometry.slices);
    packet->setInteger(m_scheme.tileSize, m_geometry.tileSize);
    packet->setInteger(m_scheme.maximum, m_geometry.maximum);
    packet->setInteger(m_scheme.index, m_tiles++);
    // Borrowed: the packet is written before the samples of the next tile replace these.
    packet->setBuffer(m_geometry.getSampleSize() == 2 ? m_scheme.samples16 : m_scheme.samples8, m_samples.data(),
                      static_cast<unsigned>(m_samples.size()), false);
    if (m_scheme.checksum) packet->setInteger(m_scheme.checksum, crc32c::Crc32c(m_samples.data(), m_samples.size()));
    m_writer.write(packet.get());
}

bool Sender::sendEnd() {
    const auto packet = kiv::makeObject<kiv::Packet>(&m_endScheme, short{0});
    packet->setInteger(m_endScheme.tiles, m_tiles);
    packet->setInteger(m_endScheme.checksum, m_checksum);
    m_writer.write(packet.get());
    return m_writer.valid();
}
