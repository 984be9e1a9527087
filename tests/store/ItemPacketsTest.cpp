// Hunts: packets that come back changed, forms that are taken for each other, leftovers of an earlier packet, stored
// bytes that a fetched packet still points to.
#include "kiv/store/Store.h"
#include "tests/data/Packets.h"
#include "tests/store/Trees.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv {
namespace {

using namespace support;
using testing::ElementsAre;

struct CargoScheme : PacketScheme {
    CargoScheme() : PacketScheme(78, "Test", nullptr, "Cargo") { Cargo(100); }
    const Field number = Number<int32_t>("number", 1);
};
const CargoScheme cargoScheme;

using Put = void (Item::*)(const Packet*) const;
using Fetch = SmartPointer<Packet> (Item::*)(const PacketScheme*) const;

SmartPointer<Packet> makePacket(const PacketScheme& scheme) {
    auto packet = makeObject<Packet>(&scheme, short{5});
    packet->setInteger("wide", -77);
    packet->setString("name", "someone");
    return packet;
}

TEST(ItemPackets, ComeBackAsTheyWereInBothForms) {
    WatchedStore store;
    const auto& scheme = quietly<NewScheme>();
    const auto roundTrip = [&](Put put, Fetch fetch, const Item& key) {
        const auto packet = makePacket(scheme);
        packet->setString("note", "a note");
        auto cargo = makeObject<Packet>(&cargoScheme, short{5});
        cargo->setCargo(reinterpret_cast<const uint8_t*>("\0\1\2"), 3);
        (key.*put)(packet.get());
        Item cargoKey(key);
        cargoKey.add("cargo");
        (cargoKey.*put)(cargo.get());
        const auto read = (key.*fetch)(&scheme), readCargo = (cargoKey.*fetch)(&cargoScheme);
        ASSERT_TRUE(read && readCargo);
        key.remove(); // what was fetched stays
        EXPECT_EQ(hexOf(*read), hexOf(*packet));
        EXPECT_TRUE(read->getFlags() == packet->getFlags() && read->getPort() == 0 && read->getReplyPort() == 0);
        EXPECT_EQ(hexOf(*readCargo), hexOf(*cargo));
    };
    Item key(&store);
    key.add("packets"), key.add(1);
    roundTrip(&Item::storePacket, &Item::fetchPacket, key);
    roundTrip(&Item::storePacketCompact, &Item::fetchPacket, key);
    roundTrip(&Item::storePacketCompact, &Item::fetchPacketCompact, key);
}

TEST(ItemPackets, HaveTheirPlacesUnderTheKey) {
    WatchedStore store;
    Item key(&store);
    key.add(1);
    auto cargo = makeObject<Packet>(&cargoScheme, short{5});
    key.storePacketCompact(cargo.get());
    EXPECT_THAT(contentOf(store), ElementsAre("{} = {}", "{<INT:1>} = {<BUF:8>}"));
    Item left(key);
    left.add("left over");
    left.store("x");
    store.calls.clear();
    key.storePacket(cargo.get());
    EXPECT_THAT(contentOf(store), ElementsAre("{} = {}", "{<INT:1>} = {}", "{<INT:1><STR:data>} = {<BUF:8>}",
                                              "{<INT:1><STR:scheme>} = {<STR:Test::Cargo>}"));
    EXPECT_TRUE(store.calls.starts_with("begin remove set") && store.calls.ends_with(" commit ")) << store.calls;
    Item data(key);
    data.add("data");
    EXPECT_EQ(data.fetch()->getBase16(), "0408000000"
                                         "4E000000"
                                         "01000000"); // id, flags and the number

    // A key that lies in one of the store's values.
    Item path(&store);
    path.add("path");
    const Item name = list("packets", std::string(60, 'x').c_str());
    path.store(list(name));
    Item inValue;
    ASSERT_TRUE(path.fetch()->getIterator().asWeakSubItem(inValue));
    inValue.setStore(&store);
    inValue.storePacket(cargo.get());
    data = name;
    data.setStore(&store);
    EXPECT_TRUE(data.fetchPacket(&cargoScheme));

    const auto before = contentOf(store);
    store.setsLeft = 1;
    EXPECT_THROW(key.storePacket(cargo.get()), std::bad_alloc);
    EXPECT_TRUE(contentOf(store) == before && store.getNumberOfLayers() == 1u);
}

TEST(ItemPackets, OlderRecordsAreBroughtUp) {
    MemoryStore store(false);
    Item key(&store);
    key.add(1);
    key.storePacket(makePacket(quietly<OldScheme>()).get());
    const auto packet = key.fetchPacket(&quietly<NewestScheme>());
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->getInteger("wide"), -77);
    EXPECT_EQ(packet->getInteger("last"), 7);
}

TEST(ItemPackets, WhatIsNoneIsRefused) {
    MemoryStore store(false);
    Item key(&store);
    key.add(1);
    LogLines log;
    const auto raw = makeObject<Packet>(8u), good = makePacket(quietly<OldScheme>());
    for (const Put put : {Put(&Item::storePacket), Put(&Item::storePacketCompact)}) {
        (key.*put)(raw.get());
        EXPECT_EQ(log.takeOne(), "trying to store packet without scheme");
        (key.*put)(nullptr);
        EXPECT_EQ(log.takeOne(), "trying to store packet without scheme");
        (Item("unbound").*put)(good.get());
        EXPECT_EQ(log.takeOne(), "[STORE] item is not bound to a store");
    }
    EXPECT_THAT(contentOf(store), ElementsAre());
    for (const Fetch fetch : {Fetch(&Item::fetchPacket), Fetch(&Item::fetchPacketCompact)}) {
        const auto refused = [&](const Item& value, const PacketScheme* scheme, const std::string& why) {
            key.store(value);
            EXPECT_FALSE((key.*fetch)(scheme));
            EXPECT_EQ(log.takeOne(), why);
        };
        key.storePacketCompact(good.get());
        EXPECT_FALSE((key.*fetch)(nullptr));
        EXPECT_EQ(log.takeOne(), "trying to fetch packet without scheme");
        EXPECT_FALSE((key.*fetch)(&cargoScheme));
        EXPECT_EQ(log.takeOne(), "invalid packet received (packet id wrong 77 != 78)");
        refused("text", &cargoScheme, "corrupt buffer_manifest packet encoding");
        refused(Item(reinterpret_cast<const uint8_t*>("\1\2\3"), 3), &cargoScheme,
                "corrupt buffer_manifest packet encoding");
        key.remove();
        EXPECT_FALSE((key.*fetch)(&cargoScheme) || (Item("unbound").*fetch)(&cargoScheme));
        EXPECT_EQ(log.takeOne(), "");
    }
    // A key that happens to exist holds no packet.
    key.store({});
    EXPECT_FALSE(key.fetchPacket(&cargoScheme));
    EXPECT_EQ(log.takeOne(), "");
    // The form with children is not the compact one.
    key.storePacket(good.get());
    EXPECT_FALSE(key.fetchPacketCompact(&quietly<OldScheme>()));
    EXPECT_EQ(log.takeOne(), "corrupt buffer_manifest packet encoding");
}

} // namespace
} // namespace kiv
