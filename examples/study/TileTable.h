#pragma once

#include "examples/study/Study.h"

#include "kiv/data/Packet.h"
#include "kiv/store/Table.h"

// Tiles as entries of a table.
class TileTable : public kiv::Table {
    KIV_OBJECT(TileTable, Table)
public:
    // The scheme outlives the table.
    TileTable(const kiv::Item& root, const study::TileScheme& scheme) : Table(root), m_scheme(scheme) { createTable(); }

    // Names the tile and keeps it under its name, which is null when that fails.
    kiv::GUID add(kiv::Packet& tile) {
        kiv::Item key, last;
        kiv::String error;
        kiv::GUID name;
        if (!createEntry(key, error) || !key.trail(last) || !last.getIterator().asGUID(name)) return {};
        tile.setGUID(m_scheme.id, name);
        key.storePacket(&tile);
        return name;
    }

protected:
    kiv::SmartPointer<kiv::Packet> createPacketForEntry(const kiv::GUID&, const kiv::Item& entryKey) override {
        return entryKey.fetchPacket(&m_scheme);
    }

private:
    const study::TileScheme& m_scheme;
};
