#include "kiv/store/Table.h"

#include "kiv/core/Random.h"
#include "kiv/core/ReportGenerator.h"
#include "kiv/data/PacketWriter.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/store/ScopedTransaction.h"

#include <fmt/format.h>

namespace kiv {

namespace {

constexpr char noStore[] = "table has no store";
constexpr char noEntry[] = "entry not found";

GUID newGUID() {
    GUIDDomainDB* const db = GUIDDomainDB::current();
    if (db && db->hasDomain()) return db->generateGUID();
    uint64_t words[4];
    for (uint64_t& word : words) word = Random::current().randomUInt64();
    return {words[0], words[1], words[2], words[3]};
}

} // namespace

Table::Table(const Item& root) : m_store(root.getStore()), m_root(root) {}
Table::~Table() = default;

Item Table::keyOf(const GUID& guid) const {
    Item key(m_root);
    key.addGUID(guid);
    return key;
}

bool Table::hasStore(String& error) const {
    if (!m_store) error = noStore;
    return static_cast<bool>(m_store);
}

void Table::createTable() {
    if (!m_store) {
        logging::MessageStream(3, 2) << noStore;
        return;
    }
    if (m_root.exists()) return;
    ScopedTransaction transaction(m_store);
    logging::MessageStream(1, 2) << "creating table for scheme";
    m_root.store(Item());
    transaction.commit();
}

bool Table::createEntry(Item& outKey, String& error) {
    if (!hasStore(error)) return false;
    ScopedTransaction transaction(m_store);
    const Item key = keyOf(newGUID());
    key.store(Item());
    transaction.commit();
    outKey = key;
    return true;
}

bool Table::deleteEntry(const Item& key, String& error) {
    if (!hasStore(error)) return false;
    if (!key.exists()) {
        error = noEntry;
        return false;
    }
    key.remove();
    return true;
}

bool Table::findEntry(const GUID& guid, Item& outKey, String& error) {
    if (!hasStore(error)) return false;
    const Item key = keyOf(guid);
    if (!key.exists()) {
        error = noEntry;
        return false;
    }
    outKey = key;
    return true;
}

// The key that the store finds next may lie below a child that does not exist: then there is no entry, but its
// siblings still follow.
void Table::forEachEntry(const std::function<void(const GUID&, const Item&)>& visit) const {
    const int depth = m_root.getDepth() + 1;
    Item key;
    if (!m_root.child(key)) return;
    do {
        const bool exists = key.getDepth() == depth;
        key.reduceDepthTo(depth);
        Item::Iterator it = key.getIterator();
        it.skip(depth - 1);
        GUID guid;
        if (exists && it.asGUID(guid)) visit(guid, key);
    } while (key.next());
}

void Table::writePacketSequence(PacketWriter* writer,
                                const std::function<bool(PacketWriter*, const GUID&, const Item&)>& filter) {
    if (!m_store) logging::MessageStream(3, 2) << noStore;
    if (!m_store || !writer) return;
    forEachEntry([&](const GUID& guid, const Item& key) {
        if (filter && !filter(writer, guid, key)) return;
        const SmartPointer<Packet> packet = createPacketForEntry(guid, key);
        if (packet) {
            packet->setGUID("id", guid);
            writer->write(packet.get());
        } else {
            logging::MessageStream(2, 2) << "can not create table entry packet for GUID " << guid.toString();
        }
    });
}

void Table::report(ReportGenerator* generator) {
    if (!generator) return;
    generator->beginSection("table:");
    Vector<GUID> guids;
    forEachEntry([&](const GUID& guid, const Item&) { guids.push_back(guid); });
    generator->addLine(fmt::format("{} entries", guids.size()));
    for (const GUID& guid : guids) generator->addLine(guid.toString());
}

SmartPointer<Packet> Table::createPacketForEntry(const GUID&, const Item&) {
    return nullptr;
}

} // namespace kiv
