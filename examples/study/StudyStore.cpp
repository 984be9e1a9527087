#include "StudyStore.h"

#include "kiv/data/FilePacketReader.h"
#include "kiv/data/FilePacketWriter.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/StoreFile.h"

#include <fmt/format.h>

namespace {

using kiv::Item;

// A line for the key and those for what is below it.
void appendTree(std::string& text, const Item& key) {
    std::string name = key.asBrowsableString().to_std_string();
    // Of the digits of a name the first eight tell enough.
    if (const size_t digits = name.find("GUID:") + 5; digits != std::string::npos + 5 && name.size() >= digits + 64)
        name.replace(digits + 8, 56, "..");
    Item value;
    if (const Item* stored = key.fetch()) value = *stored;
    constexpr size_t widest = 72;
    std::string shown = value.asBrowsableString().to_std_string();
    if (shown.size() > widest) shown = shown.substr(0, widest) + "..";
    text += fmt::format("{:<36}{}", name, shown);
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';

    constexpr uint64_t fewChildren = 4;
    uint64_t children = 0;
    Item child, first;
    std::string below;
    for (bool more = key.child(child); more; more = child.next()) {
        if (children == 0) first = child;
        ++children;
    }
    if (children == 0) return;
    if (children > fewChildren) {
        appendTree(text, first);
        text += fmt::format("... and {} more like it\n", children - 1);
        return;
    }
    for (bool more = key.child(child); more; more = child.next()) appendTree(text, child);
}

} // namespace

StudyStore::StudyStore(const Collection& collection)
    : m_collection(collection),
      m_store(kiv::makeObject<kiv::CacheStore>(kiv::makeObject<kiv::MemoryStore>(true).get())),
      m_names(kiv::makeObject<kiv::GUIDDomainDB>(key("names"))),
      m_table(kiv::makeObject<TileTable>(key("study", "tiles"), collection.getTileScheme())),
      m_log(kiv::makeObject<kiv::LogDB>(key("log"))) {
    // Numbers for 65536 programs that name tiles, of 2^32 tiles each; the rest of a name is random.
    m_names->initializeDomain(kiv::GUIDDomain(), 16, 32);
    kiv::GUIDDomainDB::exchangeCurrent(m_names.get()); // which tables take their names from
}

Item StudyStore::key(const char* first, const char* second) const {
    Item result(m_store.get());
    result.add(first);
    if (second) result.add(second);
    return result;
}

void StudyStore::add(kiv::Packet& packet) {
    if (packet.getID() == m_collection.getTileScheme().getID()) return addTile(packet);
    key("study", "end").storePacketCompact(&packet);
}

void StudyStore::addTile(kiv::Packet& tile) {
    const study::Geometry& geometry = *m_collection.getGeometry();
    const auto index = static_cast<uint32_t>(tile.getInteger(m_collection.getTileScheme().index));
    const uint32_t slice = geometry.getTile(index).slice;
    if (m_slice != slice) {
        finish();
        if (m_tileNames.empty()) {
            m_tileNames.resize(static_cast<size_t>(geometry.getTiles()));
            key("study", "about").store(m_collection.getAbout());
        }
        m_transaction.emplace(m_store.get());
        m_slice = slice;
    }
    m_tileNames[index] = m_table->add(tile);
}

Item StudyStore::keyOfSlice(uint32_t slice) const {
    Item result = key("study", "slices");
    result.add(slice);
    return result;
}

void StudyStore::addFindings(uint32_t slice, const Item& findings) {
    keyOfSlice(slice).store(findings);
    if (m_slice == slice) finish();
}

const Item* StudyStore::getFindings(uint32_t slice) const {
    return keyOfSlice(slice).fetch();
}

void StudyStore::finish() {
    if (m_transaction) m_transaction->commit();
    m_transaction.reset();
    m_slice.reset();
    takeLog();
}

void StudyStore::takeLog() {
    while (kiv::logging::LogBackend::flushTo(1, m_log.get()) != 0) {
    }
}

bool StudyStore::save(const std::string& path) const {
    return kiv::StoreFile::save(m_store.get(), path.c_str());
}

std::string StudyStore::describe() const {
    std::string text;
    appendTree(text, key("study"));
    return text;
}

std::optional<uint64_t> StudyStore::copyWithoutLog() const {
    const auto copy = kiv::makeObject<kiv::MemoryStore>(false);
    kiv::Set<Item> excluded;
    excluded.insert(m_log->getRoot());
    copy->copyFrom(m_store.get(), excluded);

    uint64_t entries = 0;
    Item mine, copied;
    bool isMore = copy->first(copied);
    for (bool more = m_store->first(mine); more; more = m_store->next(mine, mine)) {
        Item top(mine);
        top.reduceDepthTo(1);
        if (top == m_log->getRoot()) continue;
        if (!isMore || mine != copied || *m_store->get(mine) != *copy->get(copied)) return std::nullopt;
        isMore = copy->next(copied, copied);
        ++entries;
    }
    if (isMore) return std::nullopt;
    return entries;
}

bool StudyStore::writeTable(const std::string& path) const {
    kiv::FilePacketWriter writer(path.c_str());
    m_table->writePacketSequence(&writer, [](kiv::PacketWriter*, const kiv::GUID&, const Item&) { return true; });
    return writer.close();
}

bool StudyStore::confirmsTable(const std::string& path) const {
    const study::TileScheme& scheme = m_collection.getTileScheme();
    std::vector<kiv::GUID> missing = m_tileNames;
    uint64_t confirmed = 0;
    kiv::FilePacketReader reader(path.c_str());
    while (!reader.atEnd()) {
        const kiv::SmartPointer<kiv::Packet> packet = reader.read();
        if (!packet || packet->getID() != scheme.getID() || !m_collection.confirms(*packet)) return false;
        kiv::GUID& name = missing[static_cast<size_t>(packet->getInteger(scheme.index))];
        if (name.isNull() || packet->getGUID(scheme.id) != name) return false;
        name = kiv::GUID(); // it may come once
        ++confirmed;
    }
    return confirmed == m_collection.getReceivedTiles();
}
