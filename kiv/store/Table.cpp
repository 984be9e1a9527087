#include "kiv/store/Table.h"

#include "kiv/core/Random.h"
#include "kiv/core/ReportGenerator.h"
#include "kiv/data/PacketWriter.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/store/ItemBound.h"
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

// The key that the store finds next may lie below a child that does not exist, or end in the middle of an element: then
// there is no entry, but others still follow.
void Table::forEachEntry(const std::function<void(const GUID&, const Item&)>& visit) const {
    if (!m_root.exists()) return;
    const int depth = m_root.getDepth() + 1;
    const ItemBound end(m_root, ValueType::Meta);
    ItemBound behind;
    Item key;
    for (bool more = m_store->next(m_root, key); more && Item::compareTotal(key, end) < 0;
         more = m_store->next(behind, key)) {
        const unsigned size = key.getPlainSize();
        key.reduceDepthTo(depth);
        GUID guid;
        Item::Iterator it = key.getIterator();
        if (key.getPlainSize() == size && it.skip(depth - 1) && it.asGUID(guid)) visit(guid, key);
        behind.set(key, key.getPlainSize(), ValueType::End);
    }
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
