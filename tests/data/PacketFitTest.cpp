// Hunts: reads outside received bytes, arithmetic that wraps, lengths that are believed twice, versions mixed up, and
// received bytes that are copied, changed or lost.

#include "kiv/data/Packet.h"
#include "tests/data/Packets.h"
#include "tests/support/AllocationCounter.h"

#include <random>
#include <stdexcept>

namespace kiv {
namespace {

// Two fixed bytes, an array of 16-bit and one of 64-bit values.
struct ArraysScheme : PacketScheme {
    explicit ArraysScheme(short id, unsigned cargo = 0) : PacketScheme(id, nullptr, nullptr, "Arrays") { Cargo(cargo); }
    const Field fixed = Number<uint16_t>("fixed");
    const Field shorts = Numbers<uint16_t>("shorts", UpTo(3));
    const Field longs = Numbers<uint64_t>("longs", UpTo(0x7FFFFFFF));
};

const ArraysScheme arrays(20);
const ArraysScheme cargo(21, 3);

// `bytes`, borrowed, with the header of `source`.
SmartPointer<Packet> borrowing(std::vector<uint8_t>& bytes, const Packet& source, Object* owner = nullptr) {
    auto packet = makeObject<Packet>(static_cast<unsigned>(bytes.size()), bytes.data(), owner);
    packet->rawHeader() = source.rawHeader();
    return packet;
}

TEST(PacketFit, EveryDefectHasItsMessageAndLeavesThePacketRaw) {
    LogLines log;
    const auto refused = [&](const PacketScheme& scheme, short flags, const std::string& hex, const std::string& why) {
        const auto packet = received(scheme.getID(), flags, hex);
        EXPECT_FALSE(packet->fit(&scheme)) << hex;
        EXPECT_EQ(log.takeOne(), "invalid packet received (" + why + ")") << hex;
        EXPECT_TRUE(!packet->getScheme() && hexOf(*packet) == hex && packet->getCargoSize() == 0);
    };
    // The fixed bytes, padding and two counts; here and below the last eight digits are the suffix.
    const std::string fixed = "01000000", noArrays = fixed + "0000000000000000", none = "packet too small, ";
    refused(arrays, 2, "000000", none + "no version suffix");
    refused(arrays, 2, "", none + "no version suffix");
    refused(arrays, 2, "0000000005000000", none + "static size does not match payloadsize");
    refused(arrays, 2, "FFFFFFFF", none + "static size does not match payloadsize");
    refused(arrays, 2, "000000000B00000004000000", none + "expected versionSize=12, actual size=12");
    refused(arrays, 0, "0000000000000000000000", none + "expected versionSize=12, actual size=11");
    refused(arrays, 2, noArrays + "0B000000", none + "static size does not match versionSize");
    refused(arrays, 2, fixed + "04000000" + "00000000" + "0C000000",
            "dynamic array exceeded bounds, size=4, maximum=3");
    refused(arrays, 2, fixed + "00000000" + "00000080" + "0C000000",
            "dynamic array exceeded bounds, size=2147483648, maximum=2147483647");
    refused(arrays, 2, fixed + "03000000" + "00000000" + "11111111" + "0C000000",
            none + "expected size=18, actual size=20");
    refused(arrays, 2, fixed + "01000000" + "01000000" + "11110000" + "22222222222222" + "0C000000",
            none + "expected size=24, actual size=27");
    // 2^30 x 8 is 0 in 32 bits, and (2^29 + 1) x 8 is 8.
    refused(arrays, 2, fixed + "00000000" + "00000040" + "00000000" + "0C000000",
            none + "expected size=8589934608, actual size=20");
    refused(arrays, 2, fixed + "00000000" + "01000020" + "00000000" + "2222222222222222" + "0C000000",
            none + "expected size=4294967320, actual size=28");
    refused(cargo, 0, noArrays + "11223344", "packet too large, expected size=12, actual size=16");

    const auto packet = received(arrays.getID(), 0, noArrays);
    packet->setID(22);
    EXPECT_FALSE(packet->fit(&arrays));
    EXPECT_EQ(log.takeOne(), "invalid packet received (packet id wrong 22 != 20)");
    packet->setID(21);
    EXPECT_TRUE(packet->fit(&cargo)) << "a refused packet may be fitted to another scheme";
    EXPECT_FALSE(packet->fit(nullptr));
    Packet own(&arrays, 0); // refuses another scheme than its own in silence
    EXPECT_TRUE(!own.fit(&cargo) && own.fit(&arrays) && log.takeOne().empty());
}

TEST(PacketFit, ArraysAndCargoAreFoundWhereTheyLie) {
    LogLines log;
    const std::string head = "01000000020000000100000010002000", tail = "AABBCC";
    const auto packet = received(21, 0, head + "0807060504030201" + tail);
    ASSERT_TRUE(packet->fit(&cargo) && packet->isVersioningDisabled());
    EXPECT_EQ(packet->getInteger("shorts", 1), 0x20);
    EXPECT_EQ(packet->getInteger("longs"), 0x0102030405060708);
    EXPECT_TRUE(packet->getCargo() == packet->getPayloadPointer() + 24 && packet->getCargoSize() == 3);
    EXPECT_EQ(hexOf(*packet), head + "0807060504030201" + tail);
    packet->setInteger("longs", 5);
    EXPECT_EQ(hexOf(*packet), head + "0500000000000000" + tail);
    EXPECT_EQ(log.takeOne(), "");
}

TEST(PacketFit, OlderVersionsGetTheDefaultsOfLaterFields) {
    LogLines log;
    Packet old(&quietly<OldScheme>(), 0), fresh(&quietly<NewestScheme>(), 0);
    for (Packet* packet : {&old, &fresh}) packet->setInteger("small", 3), packet->setString("name", "x");
    const auto packet = received(old);
    ASSERT_TRUE(packet->fit(&quietly<NewestScheme>()));
    EXPECT_EQ(packet->getInteger("wide"), -2);
    EXPECT_STREQ(packet->getString("name"), "x");
    EXPECT_EQ(packet->getInteger("added", 1), 513);
    EXPECT_STREQ(packet->getString("note"), "none");
    EXPECT_EQ(packet->getInteger("last"), 7);
    EXPECT_EQ(hexOf(*packet), hexOf(fresh));
    EXPECT_FALSE(packet->fit(&quietly<OldScheme>())) << "the received bytes are gone";
    EXPECT_EQ(packet->getScheme(), &quietly<NewestScheme>());
    EXPECT_EQ(log.takeOne(), "");

    // Without suffix it is version 0, and is written as that again.
    old.disableVersioning();
    const auto bare = received(old);
    ASSERT_TRUE(bare->fit(&quietly<NewestScheme>()));
    EXPECT_EQ(bare->getInteger("last"), 7);
    EXPECT_EQ(hexOf(*bare), hexOf(old));
}

TEST(PacketFit, NewerVersionsAreReadAsFarAsTheyAreKnown) {
    Packet newest(&quietly<NewestScheme>(), 0);
    newest.setString("name", "abc");
    newest.setString("note", "kept");
    newest.setBuffer("more", reinterpret_cast<const uint8_t*>("123"), 3);
    for (const PacketScheme* scheme :
         std::initializer_list<const PacketScheme*>{&quietly<NewScheme>(), &quietly<OldScheme>()}) {
        const auto packet = received(newest);
        ASSERT_TRUE(packet->fit(scheme));
        EXPECT_TRUE(!scheme->field("note") || String(packet->getString("note")) == "kept");
        const auto again = received(*packet); // what is written is of the version known here
        EXPECT_TRUE(again->fit(scheme));
        EXPECT_STREQ(again->getString("name"), "abc");
    }
}

TEST(PacketFit, NothingIsCopiedFromAPacketOfTheNewestVersion) {
    Packet source(&quietly<NewScheme>(), 0);
    source.setString("name", "abc");
    auto bytes = payloadOf(source);
    const auto packet = borrowing(bytes, source);
    const NewScheme& scheme = quietly<NewScheme>();
    bool fits = false;
    const size_t allocations = support::allocationsOf([&] { fits = packet->fit(&scheme); });
    EXPECT_TRUE(fits && packet->fit(&scheme) && packet->getPayloadPointer() == bytes.data());
    const auto* name = reinterpret_cast<const uint8_t*>(packet->getString("name"));
    EXPECT_TRUE(name > bytes.data() && name < bytes.data() + bytes.size());
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library's allocations can't be counted here";
    EXPECT_EQ(allocations, 0u);
}

TEST(PacketFit, BorrowedBytesAreKeptAliveAndNeverWritten) {
    static bool isAlive;
    struct Bytes : Object {
        ~Bytes() override { isAlive = false; }
    };
    Packet source(&quietly<NewScheme>(), 0);
    source.setString("name", "abc");
    const auto expected = payloadOf(source);
    auto bytes = expected;
    isAlive = true;
    auto packet = borrowing(bytes, source, new Bytes);
    ASSERT_TRUE(packet->fit(&quietly<NewScheme>()));
    const Packet copy(*packet);
    packet->setInteger("small", 200);
    packet->setString("name", "changed");
    EXPECT_TRUE(bytes == expected && isAlive);
    EXPECT_STREQ(packet->getString("note"), "none"); // still where it was received
    EXPECT_FALSE(packet->fit(&quietly<OldScheme>())) << "a changed packet stays with its scheme";
    packet.reset();
    EXPECT_TRUE(!isAlive && payloadOf(copy) == expected);
}

TEST(PacketFit, CountsThatChangeInBorrowedMemoryAreNotBelievedAgain) {
    Packet source(&arrays, 0);
    const uint16_t shorts[] = {1, 2};
    source.setArray("shorts", shorts, 2);
    const auto original = payloadOf(source);
    auto shared = original;
    const auto packet = borrowing(shared, source);
    ASSERT_TRUE(packet->fit(&arrays));
    std::memset(shared.data() + 4, 0xFF, 4); // the count of shorts
    EXPECT_EQ(packet->getBufferSize("shorts"), 4u);
    EXPECT_TRUE(payloadOf(*packet) == original && payloadOf(Packet(*packet)) == original);
    packet->setInteger("fixed", 0);
    EXPECT_EQ(payloadOf(*packet), original);
}

TEST(PacketFit, AListOfTextsEndsThoughItsLastZeroVanishesMeanwhile) {
    Packet source(&quietly<OldScheme>(), 0);
    source.setStringList("name", Vector<String>{"a", "b"});
    auto shared = payloadOf(source);
    const auto packet = borrowing(shared, source);
    ASSERT_TRUE(packet->fit(&quietly<OldScheme>()));
    struct Writing : Vector<String> {
        void insert(const_iterator at, const String& text) {
            if (size() > 9) throw std::runtime_error("endless");
            Vector<String>::insert(at, text);
            *zero = 'x';
        }
        uint8_t* zero = nullptr;
    } list;
    list.zero = shared.data() + shared.size() - 5; // before the suffix
    EXPECT_NO_THROW(packet->getStringList("name", list));
    EXPECT_EQ(list.size(), 2u);
}

TEST(PacketFit, NothingAtAllIsARecordOfASchemeOfNothing) {
    const PacketScheme nothing(19, nullptr, nullptr, "Nothing");
    Packet packet(0u, nullptr, nullptr);
    packet.setID(19);
    ASSERT_TRUE(packet.fit(&nothing));
    packet.setDefaultValues(0);
    EXPECT_EQ(hexOf(Packet(packet)), "");
}

TEST(PacketFit, ReceivedTextsWithoutTheirZeroAreNotRead) {
    LogLines log;
    Packet source(&quietly<OldScheme>(), 0);
    source.setString("name", "abc");
    auto packet = received(source);
    packet->getPayloadPointer()[15] = 'd';
    ASSERT_TRUE(packet->fit(&quietly<OldScheme>()));
    EXPECT_STREQ(packet->getString("name"), "");
    EXPECT_EQ(log.takeOne(), "Packet::getString: member contents does not end with nullbyte, member=name, "
                             "m_scheme->getFullName()=Test::Record");
    Vector<String> list;
    packet->getStringList("name", list);
    EXPECT_TRUE(list.empty());
}

// Whatever is changed in a payload, a packet that fits is written and fitted again to the same contents.
TEST(PacketFit, RandomDamageIsRefusedOrReadWithinBounds) {
    LogLines log;
    constexpr unsigned seed = 7;
    std::mt19937 random(seed);
    SCOPED_TRACE(seed);
    Packet source(&quietly<NewScheme>(), 0);
    source.setString("name", "abc");
    const double values[] = {1, 2, 3};
    source.setArray("values", values, 3);
    const auto original = payloadOf(source);
    int fitted = 0;
    for (int round = 0; round < 4000; ++round) {
        auto bytes = original;
        for (auto changes = random() % 3 + 1; changes != 0; --changes)
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random() % 4 ? random() % 8 : random());
        bytes.resize(bytes.size() - (random() % 4 ? 0 : random() % bytes.size()));
        bytes.shrink_to_fit(); // for sanitizers to see every byte read too many
        const auto packet = borrowing(bytes, source);
        if (!packet->fit(&quietly<NewestScheme>())) continue;
        ++fitted;
        auto written = payloadOf(*packet);
        const auto again = borrowing(written, *packet);
        ASSERT_TRUE(again->fit(&quietly<NewestScheme>()));
        ASSERT_EQ(payloadOf(*again), written);
    }
    EXPECT_TRUE(fitted > 400 && fitted < 3600) << fitted;
}

} // namespace
} // namespace kiv
