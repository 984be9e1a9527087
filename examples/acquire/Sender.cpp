#include "Sender.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/process/Process.h"

#include <crc32c/crc32c.h>

#include <algorithm>

using kiv::logging::MessageStream;
using study::TileRange;

void Sender::sendHello() {
    const study::HelloScheme scheme;
    const auto packet = kiv::makeObject<kiv::Packet>(&scheme, short{0});
    packet->setInteger(scheme.processId, kiv::Process::getCurrentProcessId());
    m_writer->write(packet.get());
}

uint64_t Sender::setWanted(const std::vector<TileRange>& wanted) {
    m_isWanted.assign(static_cast<size_t>(m_geometry.getTiles()), false);
    for (const TileRange& range : wanted) {
        for (uint64_t i = range.first; i < std::min(uint64_t{range.first} + range.count, m_geometry.getTiles()); ++i)
            m_isWanted[static_cast<size_t>(i)] = true;
    }
    return static_cast<uint64_t>(std::count(m_isWanted.begin(), m_isWanted.end(), true));
}

bool Sender::wants(uint32_t slice) const {
    const auto tiles = static_cast<ptrdiff_t>(m_geometry.getTilesOfSlice());
    const auto begin = m_isWanted.begin() + slice * tiles;
    return std::find(begin, begin + tiles, true) != begin + tiles;
}

void Sender::sendSlice(uint32_t slice) {
    const uint8_t* samples = m_volume.acquireSlice(slice);
    const uint64_t first = slice * m_geometry.getTilesOfSlice();
    for (uint64_t i = first; i < first + m_geometry.getTilesOfSlice() && m_writer->valid(); ++i)
        if (m_isWanted[static_cast<size_t>(i)]) sendTile(samples, i);
}

bool Sender::sendAll() {
    setWanted({study::allTiles});
    for (uint32_t slice = 0; slice < m_geometry.slices && m_writer->valid(); ++slice) {
        if (slice % 16 == 0)
            MessageStream(1, 2) << "[DEVICE] acquiring slice " << slice + 1 << " of " << m_geometry.slices;
        sendSlice(slice);
    }
    sendEnd();
    return m_writer->valid();
}

void Sender::sendTile(const uint8_t* slice, uint64_t index) {
    const study::Geometry::Tile tile = m_geometry.getTile(index);
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
    packet->setInteger(m_scheme.index, index);
    // Borrowed: the packet is written before the samples of the next tile replace these.
    packet->setBuffer(m_geometry.getSampleSize() == 2 ? m_scheme.samples16 : m_scheme.samples8, m_samples.data(),
                      static_cast<unsigned>(m_samples.size()), false);
    if (m_scheme.checksum) packet->setInteger(m_scheme.checksum, crc32c::Crc32c(m_samples.data(), m_samples.size()));
    m_writer->write(packet.get());
    ++m_tiles;
}

void Sender::sendEnd() {
    const auto packet = kiv::makeObject<kiv::Packet>(&m_endScheme, short{0});
    packet->setInteger(m_endScheme.tiles, m_geometry.getTiles());
    packet->setInteger(m_endScheme.checksum, m_volume.getChecksum());
    m_writer->write(packet.get());
}
