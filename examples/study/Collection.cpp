#include "Collection.h"

#include "kiv/logging/MessageStream.h"

#include <crc32c/crc32c.h>

#include <algorithm>
#include <cstring>

namespace {

// Always false.
bool refuse(const char* why) {
    kiv::logging::MessageStream(3, 2) << "[COLLECT] packet refused: " << why;
    return false;
}

uint32_t unsignedOf(const kiv::Packet& packet, kiv::PacketScheme::Field field) {
    return static_cast<uint32_t>(packet.getInteger(field));
}

} // namespace

Collection::Result Collection::take(kiv::Packet& packet) {
    if (packet.getID() == m_endScheme.getID()) return takeEnd(packet);
    return takeTile(packet);
}

Collection::Result Collection::takeTile(kiv::Packet& packet) {
    Tile tile{};
    if (!packet.fit(&m_tileScheme) || !readTile(packet, tile)) return Result::Refused;
    if (!m_geometry) {
        m_geometry = tile.geometry;
        m_about = packet.getItemCopy(m_tileScheme.about);
        m_samples.resize(static_cast<size_t>(m_geometry->getBytes()));
        m_hasTile.resize(static_cast<size_t>(m_geometry->getTiles()));
    }
    auto has = m_hasTile[static_cast<size_t>(tile.index)];
    if (has) return Result::Repeated;
    has = true;
    ++m_receivedTiles;
    if (tile.checksum == study::TileScheme::noChecksum) ++m_uncheckedTiles;

    const study::Geometry::Tile place = m_geometry->getTile(tile.index);
    const size_t rowSize = size_t{place.width} * m_geometry->getSampleSize();
    for (uint32_t row = 0; row < place.height; ++row)
        std::memcpy(m_samples.data() + m_geometry->getRowOffset(place, row),
                    tile.samples.getBytePointer() + row * rowSize, rowSize);
    return Result::Taken;
}

Collection::Result Collection::takeEnd(kiv::Packet& packet) {
    if (!packet.fit(&m_endScheme)) return Result::Refused;
    if (m_end) return Result::Repeated;
    m_end = End{unsignedOf(packet, m_endScheme.tiles), unsignedOf(packet, m_endScheme.checksum)};
    return Result::Taken;
}

bool Collection::readTile(const kiv::Packet& packet, Tile& tile) const {
    tile.geometry = {unsignedOf(packet, m_tileScheme.width), unsignedOf(packet, m_tileScheme.height),
                     unsignedOf(packet, m_tileScheme.slices), unsignedOf(packet, m_tileScheme.tileSize),
                     unsignedOf(packet, m_tileScheme.maximum)};
    if (!tile.geometry.isValid()) return refuse("a study of impossible size");
    if (m_geometry && (tile.geometry != *m_geometry || packet.getItem(m_tileScheme.about) != m_about))
        return refuse("it belongs to another study");
    tile.index = unsignedOf(packet, m_tileScheme.index);
    if (tile.index >= tile.geometry.getTiles()) return refuse("there is no tile of this number");

    const bool isWide = tile.geometry.getSampleSize() == 2;
    tile.samples = packet.getByteSpan(isWide ? m_tileScheme.samples16 : m_tileScheme.samples8);
    const study::Geometry::Tile place = tile.geometry.getTile(tile.index);
    if (tile.samples.getSize() != uint64_t{place.width} * place.height * tile.geometry.getSampleSize())
        return refuse("not as many samples as its place has");
    tile.checksum = packet.getInteger(m_tileScheme.checksum);
    if (tile.checksum != study::TileScheme::noChecksum &&
        tile.checksum != crc32c::Crc32c(tile.samples.getBytePointer(), tile.samples.getSize()))
        return refuse("its samples do not have its checksum");
    return true;
}

bool Collection::isSame(const Tile& tile) const {
    const study::Geometry::Tile place = m_geometry->getTile(tile.index);
    const size_t rowSize = size_t{place.width} * m_geometry->getSampleSize();
    for (uint32_t row = 0; row < place.height; ++row) {
        if (std::memcmp(m_samples.data() + m_geometry->getRowOffset(place, row),
                        tile.samples.getBytePointer() + row * rowSize, rowSize) != 0)
            return false;
    }
    return true;
}

bool Collection::confirms(kiv::Packet& packet) const {
    if (packet.getID() == m_endScheme.getID())
        return packet.fit(&m_endScheme) && m_end && unsignedOf(packet, m_endScheme.checksum) == m_end->checksum;
    Tile tile{};
    return packet.fit(&m_tileScheme) && readTile(packet, tile) && isSame(tile);
}

std::vector<study::TileRange> Collection::getMissingRanges() const {
    if (!m_geometry) return {study::allTiles};
    std::vector<study::TileRange> ranges;
    for (size_t i = 0; i < m_hasTile.size(); ++i) {
        if (m_hasTile[i]) continue;
        if (i > 0 && !m_hasTile[i - 1]) {
            ++ranges.back().count;
        } else if (ranges.size() < study::RequestScheme::largestRangeCount) {
            ranges.push_back({static_cast<uint32_t>(i), 1});
        } else {
            ranges.back().count = UINT32_MAX;
            break;
        }
    }
    return ranges;
}

bool Collection::hasSlice(uint32_t slice) const {
    const auto tiles = static_cast<ptrdiff_t>(m_geometry->getTilesOfSlice());
    const auto begin = m_hasTile.begin() + tiles * slice;
    return std::find(begin, begin + tiles, false) == begin + tiles;
}

bool Collection::agreesWithSender() const {
    return m_end && m_geometry && m_end->tiles == m_geometry->getTiles() && getMissingTiles() == 0 &&
           m_end->checksum == crc32c::Crc32c(m_samples.data(), m_samples.size());
}
