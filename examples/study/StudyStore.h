#pragma once

#include "Collection.h"
#include "TileTable.h"

#include "kiv/store/CacheStore.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/store/LogDB.h"
#include "kiv/store/ScopedTransaction.h"

#include <optional>
#include <string>

// A study, and the log of how it came, as a tree in a store:
//     study;about          a table: of what it is, and which series of it
//     study;tiles;GUID:x   one entry a tile, each a packet of the newest scheme
//     study;slices;INT:n   a table: what was found out about this slice
//     study;end            the sender's last word
//     log                  the lines of the log
//     names                where names of entries are drawn from
// What belongs to one slice is added in one transaction, so that a store never holds a part of one but the last.
class StudyStore {
public:
    explicit StudyStore(const Collection& collection);

    // A packet that the collection has just taken. A tile gets its name in the table.
    void add(kiv::Packet& packet);
    // Of a slice whose last tile was just added: in one transaction with that.
    void addFindings(uint32_t slice, const kiv::Item& findings);
    // Null when there are none.
    const kiv::Item* getFindings(uint32_t slice) const;
    // Behind the last packet.
    void finish();
    // Moves what was logged meanwhile to the store.
    void takeLog();

    // False when the file can't be written.
    bool save(const std::string& path) const;
    // The keys below "study", a line each, in path text with their values; of many siblings the first.
    std::string describe() const;
    // How many entries a copy without the log has; nothing when it is not all the others, as they are.
    std::optional<uint64_t> copyWithoutLog() const;
    // Writes the packets of the table to a file; false when it can't be written.
    bool writeTable(const std::string& path) const;
    // Whether such a file has every tile of the collection, once and bit for bit, under its name.
    bool confirmsTable(const std::string& path) const;

private:
    kiv::Item key(const char* first, const char* second = nullptr) const;
    kiv::Item keyOfSlice(uint32_t slice) const;
    void addTile(kiv::Packet& tile);

    const Collection& m_collection;
    const kiv::SmartPointer<kiv::CacheStore> m_store;
    const kiv::SmartPointer<kiv::GUIDDomainDB> m_names;
    const kiv::SmartPointer<TileTable> m_table;
    const kiv::SmartPointer<kiv::LogDB> m_log;
    std::optional<kiv::ScopedTransaction> m_transaction;
    std::optional<uint32_t> m_slice; // that the transaction is for
    std::vector<kiv::GUID> m_tileNames;
};
