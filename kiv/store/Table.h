#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/data/Item.h"
#include "kiv/data/Packet.h"
#include "kiv/store/Store.h"

#include <functional>

namespace kiv {

class PacketWriter;
class ReportGenerator;

// The children of one key of a store that are named by identifiers. Subclasses know what is kept below such an entry,
// and make packets of it.
// Ownership: counted; keeps the store of its root. Threads: as the store. Failures: returned with a text, or logged
// where nothing is returned; without a store everything fails.
class KIV_API Table : public Object {
    KIV_OBJECT(Table, Object)
public:
    explicit Table(const Item& root);
    ~Table() override;

    const Item& getRoot() const { return m_root; }
    Store* getStore() const { return m_store.get(); }

    // Writes one packet an entry, in the order of keys: of those that `filter` returns true for (all without a filter)
    // and the subclass makes a packet of, with the entry's identifier in the packet's field "id".
    // Both may change the store, and the filter may write to the writer.
    void writePacketSequence(PacketWriter* writer,
                             const std::function<bool(PacketWriter*, const GUID&, const Item&)>& filter);

    // A section "table:" with the number of entries and their identifiers.
    virtual void report(ReportGenerator* generator);

protected:
    // Null when the entry can't be made a packet of; so is the base's.
    virtual SmartPointer<Packet> createPacketForEntry(const GUID& guid, const Item& entryKey);

    // Makes sure that the root exists.
    void createTable();
    // These set `outKey` on success and `error` on failure. New entries are named by the current GUIDDomainDB when that
    // has a domain, else by 256 random bits, and have an empty value.
    bool createEntry(Item& outKey, String& error);
    // With everything below the entry. Requires: a key out of the other two; a key that is not bound is not found.
    bool deleteEntry(const Item& key, String& error);
    bool findEntry(const GUID& guid, Item& outKey, String& error);

private:
    Item keyOf(const GUID& guid) const;
    bool hasStore(String& error) const;
    void forEachEntry(const std::function<void(const GUID&, const Item&)>& visit) const;

    SmartPointer<Store> m_store;
    Item m_root;
};

} // namespace kiv
