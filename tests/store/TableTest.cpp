// Hunts: entries that are none, siblings lost behind odd keys, sequences that stop at what can't be written.
#include "kiv/store/Table.h"

#include "kiv/core/Random.h"
#include "kiv/core/ReportGenerator.h"
#include "kiv/data/DequePacketWriter.h"
#include "kiv/data/PacketScheme.h"
#include "kiv/store/CacheStore.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"
#include "tests/support/LogLines.h"

#include <gtest/gtest.h>

namespace {

using namespace kiv;

struct TileScheme : kiv::PacketScheme {
    TileScheme() : PacketScheme(311, "Test", nullptr, "Tile") {}
    const Field id = Table();
    const Field number = Number<int32_t>("number");
};

// The value of an entry is the number of a tile; other entries make no packet.
class Tiles : public kiv::Table {
    KIV_OBJECT(Tiles, Table)
public:
    using kiv::Table::createEntry, kiv::Table::createTable, kiv::Table::deleteEntry, kiv::Table::findEntry;
    using kiv::Table::Table;

private:
    SmartPointer<kiv::Packet> createPacketForEntry(const GUID&, const Item& entryKey) override {
        static TileScheme scheme;
        int number = 0;
        Item::Iterator it = entryKey.fetch()->getIterator();
        if (!it.asInteger(number)) return nullptr;
        auto packet = kiv::makeObject<kiv::Packet>(&scheme, short{1});
        packet->setInteger("number", number);
        return packet;
    }
};

struct TableTest : testing::Test {
    SmartPointer<kiv::Store> memory{new kiv::MemoryStore(true)};
    SmartPointer<kiv::Store> store{new kiv::CacheStore(memory.get())};
    Tiles table{rootIn(store.get())};
    String error;

    static Item rootIn(kiv::Store* store) {
        Item root(store);
        root.add("studies"), root.add(7);
        return root;
    }
    Item below(const GUID& guid) {
        Item key(table.getRoot()); // and its store
        key.addGUID(guid);
        return key;
    }
    static GUID guidOf(const Item& entry) {
        Item last;
        entry.trail(last);
        GUID guid;
        Item::Iterator it = last.getIterator();
        EXPECT_TRUE(it.asGUID(guid));
        return guid;
    }
    std::vector<int64_t> written(const std::function<bool(kiv::PacketWriter*, const GUID&, const Item&)>& filter) {
        kiv::DequePacketWriter writer;
        table.writePacketSequence(&writer, filter);
        std::vector<int64_t> numbers;
        while (const auto packet = writer.fetch()) {
            const int64_t number = packet->getInteger("number");
            EXPECT_EQ(packet->getGUID("id").getWord(0), static_cast<uint64_t>(number));
            numbers.push_back(number);
        }
        return numbers;
    }
};

TEST_F(TableTest, IsCreatedOnceWithItsAncestors) {
    support::LogLines log;
    table.createTable();
    EXPECT_EQ(log.takeOne(), "creating table for scheme");
    EXPECT_TRUE(table.getRoot().exists());
    EXPECT_NE(store->get(Item("studies")), nullptr);
    store->set(table.getRoot(), Item("kept"));
    table.createTable();
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_EQ(*table.getRoot().fetch(), Item("kept"));
}

TEST_F(TableTest, EntriesAreFoundByTheirIdentifierAndDeletedWithAllBelow) {
    Item key, found("out");
    ASSERT_TRUE(table.createEntry(key, error));
    EXPECT_TRUE(key.getStore() == store.get() && key.exists() && key.fetch()->empty());
    ASSERT_TRUE(table.findEntry(guidOf(key), found, error));
    EXPECT_EQ(found, key);
    EXPECT_EQ(error, "");

    Item child(key);
    child.add("pixels");
    child.store(Item(1));
    ASSERT_TRUE(table.deleteEntry(found, error));
    EXPECT_FALSE(child.exists() || key.exists());
    EXPECT_TRUE(table.getRoot().exists() && !table.deleteEntry(found, error));
    EXPECT_EQ(error, "entry not found");
    error.clear();
    EXPECT_FALSE(table.findEntry(guidOf(key), found, error));
    EXPECT_EQ(error, "entry not found");
    EXPECT_EQ(found, key);
}

TEST_F(TableTest, NamesComeFromTheDomainInstalledOrFromChance) {
    Item records(store.get());
    records.add("domains");
    const auto db = kiv::makeObject<kiv::GUIDDomainDB>(records);
    kiv::GUIDDomainDB::exchangeCurrent(db.get());
    Item key;
    {
        const kiv::SeededRandom chance(3);
        const uint64_t words[] = {kiv::Random::current().randomUInt64(), kiv::Random::current().randomUInt64(),
                                  kiv::Random::current().randomUInt64(), kiv::Random::current().randomUInt64()};
        const kiv::SeededRandom same(3);
        ASSERT_TRUE(table.createEntry(key, error)); // there is no domain yet
        EXPECT_EQ(guidOf(key), GUID(words[0], words[1], words[2], words[3]));
    }
    db->initializeDomain(kiv::GUIDDomain(GUID(0xAB, 0, 0, 0), 8), 8, 16);
    for (uint64_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(table.createEntry(key, error));
        EXPECT_EQ(guidOf(key).getWord(0) & 0xFFFFFFFF, 0xAB | i << 16);
    }
}

TEST_F(TableTest, WritesOnePacketAnEntryInTheOrderOfKeys) {
    for (const int number : {5, 3, 9}) below(GUID(static_cast<uint64_t>(number), 0, 0, 0)).store(Item(number));
    below(GUID(4, 0, 0, 0)).store(Item("no tile"));
    store->set(Item(table.getRoot()), Item());
    store->set(support::joined(table.getRoot(), Item("not named by an identifier")), Item(77));
    // Below what is no entry, below an entry, and what is no element.
    store->set(support::joined(below(GUID(2, 0, 0, 0)), Item("pixels")), Item(2));
    store->set(support::joined(below(GUID(3, 0, 0, 0)), Item(GUID(1, 0, 0, 0))), Item(1));
    for (const Item& key : {table.getRoot(), below(GUID(8, 0, 0, 0))})
        store->set(support::joined(key, support::plain("\x20")), Item(8));
    store->set(support::list("studies", 8, GUID(6, 0, 0, 0)), Item(6));

    support::LogLines log;
    EXPECT_EQ(written(nullptr), (std::vector<int64_t>{3, 5, 9}));
    EXPECT_EQ(log.takeOne(),
              ("can not create table entry packet for GUID " + GUID(4, 0, 0, 0).toString()).to_std_string());
    EXPECT_EQ(written([](kiv::PacketWriter*, const GUID& guid, const Item&) { return guid.getWord(0) > 4; }),
              (std::vector<int64_t>{5, 9}));
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_EQ(written([](kiv::PacketWriter*, const GUID&, const Item& key) {
                  key.remove(); // while it is walked over
                  return false;
              }),
              std::vector<int64_t>());
    EXPECT_EQ(written(nullptr), std::vector<int64_t>());
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(TableTest, ReportsItsEntries) {
    support::LogLines quiet;
    kiv::TextReportGenerator report;
    table.createTable();
    below(GUID(2, 0, 0, 0)).store(Item());
    below(GUID(1, 0, 0, 0)).store(Item());
    table.report(&report);
    const String one = GUID(1, 0, 0, 0).toString(), two = GUID(2, 0, 0, 0).toString();
    EXPECT_EQ(report.getText(), "table:\n  2 entries\n  " + one + "\n  " + two + "\n");
}

TEST_F(TableTest, WithoutAStoreEverythingFails) {
    Tiles homeless(Item("root"));
    support::LogLines log;
    Item key("out");
    const auto fails = [&](bool result) {
        EXPECT_FALSE(result);
        EXPECT_EQ(error, "table has no store");
        error.clear();
    };
    fails(homeless.createEntry(key, error));
    fails(homeless.findEntry(GUID(), key, error));
    fails(homeless.deleteEntry(key, error));
    EXPECT_EQ(key, Item("out"));
    EXPECT_EQ(log.takeOne(), "");
    homeless.createTable();
    EXPECT_EQ(log.takeOne(), "table has no store");
    kiv::DequePacketWriter writer;
    homeless.writePacketSequence(&writer, nullptr);
    EXPECT_EQ(log.takeOne(), "table has no store");
}

} // namespace
