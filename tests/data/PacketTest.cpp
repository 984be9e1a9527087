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
    EveryScheme() : PacketScheme(1013, "Test", nullptr, "Every") {}
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
    Packet packet(&every, 5);
    EXPECT_EQ(packet.convertToBase16String().substr(0, 23), "PKTB16[0500FFFFF5030200"); // port, reply port, id, flags
    EXPECT_TRUE(packet.getInteger("u16") == 0 && packet.getFloat("real") == 0.25 && packet.getFloat("single") == 0.5);
    EXPECT_FALSE(packet.getFlushAfterThis());
    packet.addFlag(12);
    EXPECT_TRUE(packet.hasFlag(9) && !packet.hasFlag(17));
    packet.clearFlag(6);
    EXPECT_TRUE(packet.getFlags() == 8 && packet.manifest().id == 1013 && packet.association().replyPort == -1);
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
    row("i8", 127, 127), row("i8", 128, -128), row("i8", -1, -1), row("u16", 65537, 1), row("u16", -1, 65535);
    row("flag", 1, 1), row("i64s", std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::min());
    packet->setInteger(every.i64s, 42, 1);
    EXPECT_EQ(packet->getInteger(every.i64s, 1), 42);
    EXPECT_EQ(packet->getInteger(every.i64s, 0), std::numeric_limits<int64_t>::min());
    packet->setFloat("single", 0.1);
    EXPECT_EQ(packet->getFloat("single"), static_cast<double>(0.1f));
    packet->setGUID("id", GUID(1, 2, 3, 4));
    EXPECT_EQ(packet->getGUID(every.key), GUID(1, 2, 3, 4));
}

TEST(Packet, FieldsOfAKnownTypeAreReadAndWrittenInIt) {
    Packet packet(&every, 0);
    packet.set(every.u16, 65535), packet.set(every.single, 0.1f), packet.set(every.flag, true);
    EXPECT_TRUE(packet.get(every.u16) == 65535 && packet.get(every.single) == 0.1f && packet.get(every.flag));
    packet.getPayloadPointer()[every.flag.getElement()->offset] = 2; // no bool holds it
    EXPECT_TRUE(packet.get(every.flag));

    // In a packet of another scheme they stand for the element of their name.
    struct OtherScheme : PacketScheme {
        OtherScheme() : PacketScheme(13, nullptr, nullptr, "Other") {
            Number<double>("before");
            Number<int8_t>("u16", -1);
        }
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
    const auto refused = [&](const auto& misuse, const std::string& what, const std::string& name) {
        misuse(*packet);
        EXPECT_EQ(log.takeOne(), "Packet::" + what + ", member=" + name + ", m_scheme->getFullName()=Test::Every");
        EXPECT_EQ(payloadOf(*packet), before);
    };
    const uint32_t wide[] = {1, 2};
    const auto* narrow = reinterpret_cast<const uint16_t*>(wide);
    const std::string none = ": no member", large = ": contents too large";
    refused([](Packet& p) { p.setInteger("nothing", 1); }, "setInteger" + none, "nothing");
    refused([](Packet& p) { p.setInteger("real", 1); }, "setInteger" + none, "real");
    refused([](Packet& p) { p.setInteger(PacketField(), 1); }, "setInteger" + none, "");
    refused([](Packet& p) { p.setInteger("i64s", 1, 2); }, "setInteger" + none, "i64s");
    refused([](Packet& p) { p.setInteger("pixels", 1, 0); }, "setInteger" + none, "pixels"); // empty: no first value
    refused([](Packet& p) { EXPECT_EQ(p.getInteger("text"), 0); }, "getInteger" + none, "text");
    refused([](Packet& p) { EXPECT_EQ(p.getFloat("i8"), 0); }, "getFloat" + none, "i8");
    refused([](Packet& p) { p.setGUID("real", GUID(1, 2, 3, 4)); }, "setGUID" + none, "real");
    refused([](Packet& p) { EXPECT_STREQ(p.getString("blob"), ""); }, "getString" + none, "blob");
    refused([](Packet& p) { EXPECT_EQ(p.getBuffer("text"), nullptr); }, "getBuffer" + none, "text");
    refused([](Packet& p) { p.setItem("item", kiv::Item(String(80, 'x'))); }, "setItem" + large, "item");
    refused([](Packet& p) { p.setBuffer("blob", Buffer(65)); }, "setBuffer" + large, "blob");
    refused([&](Packet& p) { p.setBuffer("pixels", before.data(), 3); }, "setBuffer: contents end within a value",
            "pixels");
    refused([](Packet& p) { EXPECT_FALSE(p.allocateBuffer("blob", 65, false)); }, "allocateBuffer" + large, "blob");
    refused([&](Packet& p) { p.setArray("pixels", wide, 2); }, "setArray" + none, "pixels");
    constexpr size_t zeroBytes = size_t{1} << 63; // in 64 bits
    refused([&](Packet& p) { p.setArray("pixels", narrow, zeroBytes); }, "setArray" + large, "pixels");
    const Vector<String> tooLong{"12345", "123456"};
    refused([&](Packet& p) { p.setStringList("text", tooLong); }, "setStringList" + large, "text");

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

    const auto row = [&](const char* name, const String& in, const char* out) {
        packet->setString(name, in);
        EXPECT_STREQ(packet->getString(name), out);
        const bool isCut = in.c_str() != std::string(out); // not what stands behind a zero
        EXPECT_EQ(log.takeOne(), isCut ? "Packet::setString: text cut, member=" + std::string(name) + tail : "");
    };
    row("slot", "1234567", "1234567"), row("slot", "12345678", "1234567");
    row("slot", "12345\xE2\x82\xAC", "12345"); // the euro sign would end behind the slot
    row("slot", "1234\xE2\x82\xAC", "1234\xE2\x82\xAC"), row("slot", String("ab\0cd", 5), "ab");
    row("text", "12345678901", "12345678901"), row("text", "123456789012", "12345678901");
    row("text", "", ""), row("text", "short", "short");
    packet->setString("text", packet->getString("text") + 2); // from itself
    EXPECT_STREQ(packet->getString("text"), "ort");
}

TEST(Packet, StringListsKeepEmptyTextsButNotThePaddingOfSlots) {
    const auto packet = makeObject<Packet>(&every, short{0});
    LogLines log;
    const auto same = [&](const char* name, const Vector<String>& texts) {
        packet->setStringList(name, texts);
        Vector<String> read{"old"};
        packet->getStringList(name, read);
        EXPECT_EQ(read, texts) << name;
    };
    same("text", {}), same("text", {"a", "", "bc"}), same("text", {"", ""});
    same("slot", {"a", "", "bc"}), same("slot", {});
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
    const kiv::Item copy = packet->getItemCopy("item");
    EXPECT_EQ(packet->getItem("fixedItem").getPlainSize(), item.getPlainSize()); // without the padding
    packet->setItem("item", kiv::Item());
    EXPECT_TRUE(copy == item && packet->getItem("item").empty());

    const uint16_t pixels[] = {1, 2, 65535};
    packet->setArray("pixels", pixels, 3);
    Vector<uint16_t> read;
    EXPECT_TRUE(packet->getArray(every.pixels, read) && packet->getBufferSize("pixels") == 6);
    EXPECT_EQ(read, Vector<uint16_t>(std::begin(pixels), std::end(pixels)));
    // A borrowed array is not written to.
    packet->setBuffer("pixels", reinterpret_cast<const uint8_t*>(pixels), 6, false);
    EXPECT_EQ(packet->getBuffer("pixels"), reinterpret_cast<const uint8_t*>(pixels));
    packet->setInteger("pixels", 9, 1);
    EXPECT_TRUE(packet->getInteger("pixels", 1) == 9 && pixels[1] == 2);

    uint8_t* room = packet->allocateBuffer("blob", 60, true);
    EXPECT_TRUE(std::count(room, room + 60, 0) == 60 && packet->getBuffer("blob") == room);
    const uint8_t four[] = {1, 2, 3, 4};
    packet->setBuffer("bytes", four, 4);
    packet->setBuffer("bytes", four, 1);
    EXPECT_EQ(std::memcmp(packet->getBuffer("bytes"), "\1\0\0\0", 4), 0) << "the rest of a slot must be zero";
}

TEST(Packet, CopiesOwnTheirBytesAndSwapExchangesEverything) {
    const auto fill = [](Packet& packet, int64_t number, unsigned blob) {
        packet.setInteger("i8", number);
        packet.setString("text", "t" + std::to_string(number));
        std::memset(packet.allocateBuffer("blob", blob, false), static_cast<int>(number), blob);
    };
    Packet a(&every, 1), b(&every, 2);
    fill(a, 11, 3), fill(b, 22, 64);
    const auto bytesOfA = payloadOf(a), bytesOfB = payloadOf(b);

    Packet copy(a);
    fill(a, 33, 64);
    const auto changed = payloadOf(a);
    EXPECT_EQ(payloadOf(copy), bytesOfA);
    copy = b;
    fill(copy, 44, 1); // writes to a copy reach nothing else
    EXPECT_EQ(payloadOf(b), bytesOfB);
    copy = b;
    copy.swap(a);
    EXPECT_TRUE(payloadOf(a) == bytesOfB && a.getPort() == 2 && payloadOf(copy) == changed);

    Packet raw(3u, reinterpret_cast<const uint8_t*>("abc"), nullptr);
    raw.swap(b);
    EXPECT_EQ(payloadOf(raw), bytesOfB);
    EXPECT_EQ(hexOf(b) + hexOf(Packet(&b)), "616263616263");
    EXPECT_EQ(Packet(static_cast<const Packet*>(nullptr)).getPayloadSize(), 0u);
}

TEST(Packet, CargoEndsAPacketWithoutVersion) {
    LogLines log;
    Packet packet(&cargoScheme, 3);
    EXPECT_TRUE(packet.isVersioningDisabled() && packet.getFlags() == 0);
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
    Packet(&every, 0).setCargo(foreign, 1);
    EXPECT_EQ(log.take().size(), 2u);
}

TEST(Packet, PaddingIsZeroWhateverMemoryHeldBefore) {
    Packet packet(&quietly<NewestScheme>(), 0);
    const auto fresh = payloadOf(packet);
    std::memset(packet.getPayloadPointer(), 0xAA, packet.getScheme()->getNewestVersion().staticSize);
    packet.setDefaultValues(0);
    EXPECT_EQ(payloadOf(packet), fresh);
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
    for (const char* text :
         {"", "PKTB16[", "PKTB16]", "PKTB16[]", "PKTB16[0100FFFF4D0002]", "PKTB16[0100FFFF4D000200A]",
          "PKTB16[0100FFFF4D000200AB", "PKTB16[0100FFFF4D000200AG]", "PKTB16[0100FFFF4D00020G]",
          " PKTB16[0100FFFF4D000200]", "PKTB16[0100FFFF4D000200] ", "pktb16[0100FFFF4D000200]"}) {
        EXPECT_FALSE(Packet::createFromBase16String(text)) << text;
        EXPECT_EQ(log.takeOne(), "corrupt base16 packet encoding") << text;
    }

    // The binary form has neither port.
    const auto bytes = Packet::createFromBase16String("PKTB16[0100FFFF0C0040000201]")->convertToBufferWithManifest();
    EXPECT_EQ(String::encodeBase16FromBuffer(bytes), "0C0040000201");
    EXPECT_EQ(Packet::createFromBufferWithManifest(bytes)->convertToBase16String(), "PKTB16[000000000C0040000201]");
    EXPECT_EQ(Packet::createFromBufferWithManifest({bytes.getBytePointer(), 4})->getPayloadSize(), 0u);
    EXPECT_FALSE(Packet::createFromBufferWithManifest({bytes.getBytePointer(), 3}));
    EXPECT_EQ(log.takeOne(), "corrupt buffer_manifest packet encoding");
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
