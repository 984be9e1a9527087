// Hunts: fields written at the wrong place or width, old memory that leaves with a packet, writes into borrowed or
// received bytes, copies and swaps that share memory, and names that cost more than they should.

#include "kiv/data/Packet.h"
#include "kiv/data/ByteConsumer.h"
#include "tests/data/Packets.h"
#include "tests/support/AllocationCounter.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>

namespace kiv {
namespace {

struct EveryScheme : PacketScheme {
    EveryScheme() : PacketScheme(1003, "Test", nullptr, "Every") {}
    const Field key = Table();
    const Field i8 = Number<int8_t>("i8");
    const NumberField<uint16_t> u16 = Number<uint16_t>("u16");
    const Field i64s = Numbers<int64_t>("i64s", 2);
    const NumberField<bool> flag = Number<bool>("flag");
    const NumberField<float> single = Number<float>("single", 0.5f);
    const Field real = Number<double>("real", 0.25);
    const Field slot = String("slot", 8);
    const Field text = String("text", UpTo(12));
    const Field bytes = Buffer("bytes", 4);
    const Field blob = Buffer("blob", UpTo(64));
    const Field fixedItem = Item("fixedItem", 16);
    const Field item = Item("item", UpTo(64));
    const Field pixels = Numbers<uint16_t>("pixels", UpTo(1000));
};

struct CargoScheme : PacketScheme {
    CargoScheme() : PacketScheme(12, nullptr, nullptr, "Cargo") { Cargo(16); }
    const Field number = Number<uint16_t>("number", 258);
};

const EveryScheme every;
const CargoScheme cargoScheme;
const PacketScheme emptyScheme(2, nullptr, nullptr, "Empty");

TEST(Packet, NewPacketHasHeaderAndDefaults) {
    const auto packet = makeObject<Packet>(&every, short{5});
    EXPECT_EQ(packet->getPort(), 5);
    EXPECT_EQ(packet->getReplyPort(), -1);
    EXPECT_EQ(packet->getID(), 1003);
    EXPECT_EQ(packet->getFlags(), 2);
    EXPECT_EQ(packet->getInteger("u16"), 0);
    EXPECT_EQ(packet->getFloat("real"), 0.25);
    EXPECT_EQ(packet->getFloat("single"), 0.5);
    EXPECT_FALSE(packet->getFlushAfterThis());

    packet->addFlag(12);
    EXPECT_TRUE(packet->hasFlag(9));
    EXPECT_FALSE(packet->hasFlag(17));
    packet->clearFlag(6);
    EXPECT_EQ(packet->getFlags(), 8);
    EXPECT_EQ(packet->manifest().id, 1003);
    EXPECT_EQ(packet->association().replyPort, -1);
}

TEST(Packet, WireFormIsStaticPartAlignedArraysAndSuffix) {
    const auto packet = makeObject<Packet>(&quietly<NewScheme>(), short{0});
    packet->setInteger("wide", -3);
    packet->setString("name", "ab");
    const double values[] = {1.0, -2.0};
    packet->setArray("values", values, 2);
    const uint8_t blob[] = {1, 2};
    packet->setBuffer("blob", blob, 2);
    EXPECT_EQ(hexOf(*packet), "09000000FDFFFFFF03000000" // small, padding, wide, count of name
                              "0102010202000000"         // added (twice its default), count of values
                              "05000000010200"           // count of note, blob
                              "616200"                   // name
                              "0000"                     // up to a multiple of eight
                              "000000000000F03F00000000000000C0"
                              "6E6F6E6500"
                              "1B000001");
    EXPECT_EQ(packet->convertToBase16String(), "PKTB16[0000FFFF4D000200" + hexOf(*packet) + "]");

    struct Collector : ByteConsumer {
        void consume(const uint8_t* bytes, unsigned size) override { all.insert(all.end(), bytes, bytes + size); }
        std::vector<uint8_t> all;
    } collector;
    packet->getPayloadConsumed(&collector);
    EXPECT_EQ(collector.all, payloadOf(*packet));

    packet->disableVersioning(); // version 0: no suffix, one array
    EXPECT_EQ(hexOf(*packet), "09000000FDFFFFFF03000000616200");
    EXPECT_EQ(makeObject<Packet>(&emptyScheme, short{0})->convertToBase16String(), "PKTB16[0000FFFF0200020000000000]");
}

TEST(Packet, IntegersTruncateOnSetAndExtendByTypeOnGet) {
    const auto packet = makeObject<Packet>(&every, short{0});
    const auto row = [&](const char* name, int64_t in, int64_t out) {
        packet->setInteger(name, in);
        EXPECT_EQ(packet->getInteger(name), out) << name << " " << in;
        EXPECT_EQ(packet->getInteger(every.field(name)), out) << name << " " << in;
    };
    row("i8", 127, 127);
    row("i8", 128, -128);
    row("i8", -1, -1);
    row("u16", 65537, 1);
    row("u16", -1, 65535);
    row("flag", 1, 1);
    row("i64s", std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::min());
    packet->setInteger(every.i64s, 42, 1);
    EXPECT_EQ(packet->getInteger(every.i64s, 1), 42);
    EXPECT_EQ(packet->getInteger(every.i64s, 0), std::numeric_limits<int64_t>::min());
    packet->setFloat("single", 0.1);
    EXPECT_EQ(packet->getFloat("single"), static_cast<double>(0.1f));
    const GUID guid(1, 2, 3, 4);
    packet->setGUID("id", guid);
    EXPECT_EQ(packet->getGUID(every.key), guid);
}

TEST(Packet, FieldsOfAKnownTypeAreReadAndWrittenInIt) {
    Packet packet(&every, 0);
    packet.set(every.u16, 65535);
    packet.set(every.single, 0.1f);
    packet.set(every.flag, true);
    EXPECT_EQ(packet.get(every.u16), 65535);
    EXPECT_EQ(packet.get(every.single), 0.1f);
    EXPECT_TRUE(packet.get(every.flag));
    packet.getPayloadPointer()[every.flag.getElement()->offset] = 2; // no bool holds it
    EXPECT_TRUE(packet.get(every.flag));

    // In a packet of another scheme they stand for the element of their name.
    struct OtherScheme : PacketScheme {
        OtherScheme() : PacketScheme(13, nullptr, nullptr, "Other") {}
        const Field before = Number<double>("before");
        const Field u16 = Number<int8_t>("u16", -1);
    };
    const OtherScheme other;
    Packet otherPacket(&other, 0);
    EXPECT_EQ(otherPacket.get(every.u16), 65535);
    otherPacket.set(every.u16, 0x7F);
    EXPECT_EQ(otherPacket.getInteger("u16"), 0x7F);
    LogLines log;
    EXPECT_EQ(otherPacket.get(every.single), 0.0f);
    EXPECT_EQ(log.takeOne(), "Packet::getFloat: no member, member=single, m_scheme->getFullName()=Other");
}

TEST(Packet, MisuseIsLoggedAndChangesNothing) {
    const auto packet = makeObject<Packet>(&every, short{0});
    packet->setString("text", "kept");
    const auto before = payloadOf(*packet);
    LogLines log;
    const auto refused = [&](const std::string& what, const std::string& name) {
        EXPECT_EQ(log.takeOne(), "Packet::" + what + ", member=" + name + ", m_scheme->getFullName()=Test::Every");
        EXPECT_EQ(payloadOf(*packet), before);
    };
    packet->setInteger("nothing", 1);
    refused("setInteger: no member", "nothing");
    packet->setInteger("real", 1);
    refused("setInteger: no member", "real");
    packet->setInteger(PacketField(), 1);
    refused("setInteger: no member", "");
    packet->setInteger("i64s", 1, 2);
    refused("setInteger: no member", "i64s");
    packet->setInteger("pixels", 1, 0); // an empty array has no first value
    refused("setInteger: no member", "pixels");
    EXPECT_EQ(packet->getInteger("text"), 0);
    refused("getInteger: no member", "text");
    EXPECT_EQ(packet->getFloat("i8"), 0);
    refused("getFloat: no member", "i8");
    packet->setGUID("real", GUID(1, 2, 3, 4));
    refused("setGUID: no member", "real");
    EXPECT_STREQ(packet->getString("blob"), "");
    refused("getString: no member", "blob");
    EXPECT_EQ(packet->getBuffer("text"), nullptr);
    refused("getBuffer: no member", "text");
    packet->setItem("item", kiv::Item(String(80, 'x')));
    refused("setItem: contents too large", "item");
    packet->setBuffer("blob", Buffer(65));
    refused("setBuffer: contents too large", "blob");
    packet->setBuffer("pixels", before.data(), 3);
    refused("setBuffer: contents end within a value", "pixels");
    EXPECT_EQ(packet->allocateBuffer("blob", 65, false), nullptr);
    refused("allocateBuffer: contents too large", "blob");
    const uint32_t wide[] = {1, 2};
    packet->setArray("pixels", wide, 2);
    refused("setArray: no member", "pixels");
    packet->setArray("pixels", reinterpret_cast<const uint16_t*>(wide), size_t{1} << 63); // 0 bytes in 64 bits
    refused("setArray: contents too large", "pixels");
    packet->setStringList("text", Vector<String>{"12345", "123456"});
    refused("setStringList: contents too large", "text");

    Packet raw(4u);
    EXPECT_EQ(raw.getInteger(every.u16), 0);
    EXPECT_EQ(log.takeOne(), "Packet::getInteger: no member, member=u16, m_scheme->getFullName()=");
}

TEST(Packet, TextsAreCutBetweenCharactersAndUnsetOnesAreLogged) {
    const auto packet = makeObject<Packet>(&every, short{0});
    LogLines log;
    const std::string tail = ", m_scheme->getFullName()=Test::Every";
    EXPECT_STREQ(packet->getString("slot"), "");
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_STREQ(packet->getString("text"), "");
    EXPECT_EQ(log.takeOne(), "Packet::getString: member contents is empty, member=text" + tail);

    const auto row = [&](const char* name, const String& in, const char* out, bool isCut) {
        packet->setString(name, in);
        EXPECT_STREQ(packet->getString(name), out);
        EXPECT_EQ(log.takeOne(), isCut ? "Packet::setString: text cut, member=" + std::string(name) + tail : "");
    };
    row("slot", "1234567", "1234567", false);
    row("slot", "12345678", "1234567", true);
    row("slot", "12345\xE2\x82\xAC", "12345", true); // the euro sign would end behind the slot
    row("slot", "1234\xE2\x82\xAC", "1234\xE2\x82\xAC", false);
    row("slot", String("ab\0cd", 5), "ab", false);
    row("text", "12345678901", "12345678901", false);
    row("text", "123456789012", "12345678901", true);
    row("text", "", "", false);
    row("text", "short", "short", false);
    packet->setString("text", packet->getString("text") + 2); // from itself
    EXPECT_STREQ(packet->getString("text"), "ort");
}

TEST(Packet, StringListsKeepEmptyTextsButNotThePaddingOfSlots) {
    const auto packet = makeObject<Packet>(&every, short{0});
    LogLines log;
    const auto row = [&](const char* name, const Vector<String>& in, const Vector<String>& out) {
        packet->setStringList(name, in);
        Vector<String> read{"old"};
        packet->getStringList(name, read);
        EXPECT_EQ(read, out) << name;
    };
    row("text", {}, {});
    row("text", {"a", "", "bc"}, {"a", "", "bc"});
    row("text", {"", ""}, {"", ""});
    row("slot", {"a", "", "bc"}, {"a", "", "bc"});
    row("slot", {}, {});
    Set<String> sorted;
    packet->setStringList("text", List<String>{"b", "a", "b"});
    packet->getStringList("text", sorted);
    EXPECT_EQ(sorted, (Set<String>{"a", "b"}));
    EXPECT_EQ(log.takeOne(), "");
}

TEST(Packet, ItemsAndArraysReadBackAsWritten) {
    const auto packet = makeObject<Packet>(&every, short{0});
    kiv::Item item("text");
    item.add(7);
    packet->setItem("item", item);
    packet->setItem("fixedItem", item);
    EXPECT_EQ(packet->getItem("item").getPlainSize(), item.getPlainSize());
    EXPECT_EQ(packet->getItem("fixedItem").getPlainSize(), item.getPlainSize()); // without the padding
    const kiv::Item copy = packet->getItemCopy("item");
    packet->setItem("item", kiv::Item());
    EXPECT_EQ(copy, item);
    EXPECT_TRUE(packet->getItem("item").empty());

    const uint16_t pixels[] = {1, 2, 65535};
    packet->setArray("pixels", pixels, 3);
    Vector<uint16_t> read;
    EXPECT_TRUE(packet->getArray(every.pixels, read));
    EXPECT_EQ(read, Vector<uint16_t>(std::begin(pixels), std::end(pixels)));
    packet->setInteger("pixels", 9, 1);
    EXPECT_EQ(packet->getInteger("pixels", 1), 9);
    EXPECT_EQ(packet->getBufferSize("pixels"), 6u);

    uint8_t* room = packet->allocateBuffer("blob", 60, true);
    EXPECT_EQ(std::count(room, room + 60, 0), 60);
    EXPECT_EQ(packet->getBuffer("blob"), room);
    const uint8_t four[] = {1, 2, 3, 4};
    packet->setBuffer("bytes", four, 4);
    packet->setBuffer("bytes", four, 1);
    EXPECT_EQ(packet->getBuffer("bytes")[0], 1);
    EXPECT_EQ(packet->getBuffer("bytes")[3], 0) << "the rest of a slot must be zero";
}

TEST(Packet, BorrowedArraysAreNotWrittenTo) {
    uint16_t pixels[] = {1, 2, 3};
    const auto packet = makeObject<Packet>(&every, short{0});
    packet->setBuffer("pixels", reinterpret_cast<const uint8_t*>(pixels), 6, false);
    EXPECT_EQ(packet->getBuffer("pixels"), reinterpret_cast<const uint8_t*>(pixels));
    packet->setInteger("pixels", 9, 1);
    EXPECT_EQ(packet->getInteger("pixels", 1), 9);
    EXPECT_EQ(pixels[1], 2);
}

TEST(Packet, CopiesOwnTheirBytesAndSwapExchangesEverything) {
    const auto fill = [](Packet& packet, int64_t number, unsigned blob) {
        packet.setInteger("i8", number);
        packet.setString("text", "t" + std::to_string(number));
        std::memset(packet.allocateBuffer("blob", blob, false), static_cast<int>(number), blob);
    };
    Packet a(&every, 1);
    fill(a, 11, 3);
    Packet b(&every, 2);
    fill(b, 22, 64);
    const auto bytesOfA = payloadOf(a);
    const auto bytesOfB = payloadOf(b);

    Packet copy(a);
    fill(a, 33, 64);
    EXPECT_EQ(payloadOf(copy), bytesOfA);
    fill(copy, 44, 1); // writes to a copy reach nothing else
    EXPECT_EQ(payloadOf(b), bytesOfB);
    copy = b;
    copy.swap(a);
    EXPECT_EQ(payloadOf(a), bytesOfB);
    EXPECT_EQ(a.getPort(), 2);
    EXPECT_EQ(copy.getInteger("i8"), 33);
    EXPECT_EQ(copy.getBufferSize("blob"), 64u);

    Packet raw(3u, reinterpret_cast<const uint8_t*>("abc"), nullptr);
    raw.swap(b);
    EXPECT_EQ(payloadOf(raw), bytesOfB);
    EXPECT_EQ(hexOf(b), "616263");
    EXPECT_EQ(hexOf(Packet(&b)), "616263");
    EXPECT_EQ(Packet(static_cast<const Packet*>(nullptr)).getPayloadSize(), 0u);
}

TEST(Packet, CargoEndsAPacketWithoutVersion) {
    LogLines log;
    Packet packet(&cargoScheme, 3);
    EXPECT_TRUE(packet.isVersioningDisabled());
    EXPECT_EQ(packet.getFlags(), 0);
    packet.setCargoString("abc");
    EXPECT_EQ(hexOf(packet), "020161626300");
    EXPECT_EQ(packet.getCargoString(), "abc");
    packet.setCargo(Buffer(17));
    EXPECT_EQ(log.takeOne(), "Packet::setCargo: cargo too large, size=17, maximum=16, m_scheme->getFullName()=Cargo");
    EXPECT_EQ(packet.getCargoSize(), 4u);
    const uint8_t foreign[] = {1, 2};
    packet.setCargo(foreign, 2, false);
    EXPECT_EQ(packet.getCargo(), foreign);
    std::memset(packet.allocateCargo(16, true) + 1, 7, 1);
    EXPECT_EQ(hexOf(packet), "020100070000000000000000000000000000");
    packet.addFlag(Packet::VersionedFlag);
    EXPECT_EQ(packet.allocateCargo(1, true), nullptr);
    EXPECT_EQ(hexOf(packet), "020102000000");
    Packet other(&every, 0);
    other.setCargo(foreign, 1);
    EXPECT_EQ(log.take().size(), 2u);
}

TEST(Packet, PaddingIsZeroWhateverMemoryHeldBefore) {
    Packet packet(&quietly<NewestScheme>(), 0);
    const auto fresh = payloadOf(packet);
    std::memset(packet.getPayloadPointer(), 0xAA, packet.getScheme()->getNewestVersion().staticSize);
    packet.setDefaultValues(0);
    EXPECT_EQ(payloadOf(packet), fresh);
}

TEST(Packet, ManifestFormKeepsIdFlagsAndPayload) {
    LogLines log;
    Packet packet(&cargoScheme, 3);
    packet.addFlag(64);
    const Buffer bytes = packet.convertToBufferWithManifest();
    EXPECT_EQ(String::encodeBase16FromBuffer(bytes), "0C0040000201");
    const auto back = Packet::createFromBufferWithManifest(bytes);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->convertToBase16String(), "PKTB16[000000000C0040000201]");
    EXPECT_EQ(log.takeOne(), "");
    EXPECT_FALSE(Packet::createFromBufferWithManifest({bytes.getBytePointer(), 3}));
    EXPECT_EQ(log.takeOne(), "corrupt buffer_manifest packet encoding");
    EXPECT_EQ(Packet::createFromBufferWithManifest({bytes.getBytePointer(), 4})->getPayloadSize(), 0u);
}

TEST(Packet, Base16FormIsReadBackAndNothingElseIs) {
    LogLines log;
    const auto accepted = [&](const char* text, const char* again) {
        const auto packet = Packet::createFromBase16String(text);
        ASSERT_TRUE(packet) << text;
        EXPECT_EQ(packet->convertToBase16String(), again);
    };
    accepted("PKTB16[0100FFFF4D000200]", "PKTB16[0100FFFF4D000200]");
    accepted("PKTB16[0100ffFF4d000200aB]", "PKTB16[0100FFFF4D000200AB]");
    EXPECT_EQ(log.takeOne(), "");
    const auto refused = [&](const char* text) {
        EXPECT_FALSE(Packet::createFromBase16String(text)) << text;
        EXPECT_EQ(log.takeOne(), "corrupt base16 packet encoding") << text;
    };
    refused("");
    refused("PKTB16[");
    refused("PKTB16]");
    refused("PKTB16[]");
    refused("PKTB16[0100FFFF4D0002]");
    refused("PKTB16[0100FFFF4D000200A]");
    refused("PKTB16[0100FFFF4D000200AB");
    refused("PKTB16[0100FFFF4D000200AG]");
    refused("PKTB16[0100FFFF4D00020G]");
    refused(" PKTB16[0100FFFF4D000200]");
    refused("PKTB16[0100FFFF4D000200] ");
    refused("pktb16[0100FFFF4D000200]");
}

TEST(Packet, SmallPacketsAreOneAllocationAndFieldsNone) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library's allocations can't be counted here";
    const NewScheme& scheme = quietly<NewScheme>();
    const size_t allocations = support::allocationsOf([&] {
        const auto packet = makeObject<Packet>(&scheme, short{0});
        for (const char* name : {"small", "wide"}) packet->setInteger(name, packet->getInteger(name) + 1);
        packet->setString("name", "fifteen letters");
        packet->setInteger(scheme.added, 7, 1);
    });
    EXPECT_EQ(allocations, 1u);
}

} // namespace
} // namespace kiv
