// Hunts: encodings that differ by a byte, writers that read from a block they just freed, copies and views that lose or
// share their bytes, and readers that move or write although they failed.
#include "kiv/data/Item.h"
#include "tests/data/Items.h"
#include "tests/support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

using namespace kiv;
using namespace support;
using namespace std::string_literals;

TEST(Item, EncodesEveryTypeToItsBytes) {
    const uint8_t bytes[] = {0xAB, 0xCD};
    const auto is = [](const Item& item, const std::string& hex) { EXPECT_EQ(item.getBase16(), hex); };
    is(127, "087F"), is(-128, "0880"), is(128, "078000"), is(-129, "077FFF"), is(32767, "07FF7F");
    is(32768, "0600800000"), is(2147483647, "06FFFFFF7F"), is(2147483648, "010000008000000000");
    is(list(4294967295u), "01FFFFFFFF00000000"), is(list(0xFFFFFFFFFFFFFFFFull), "08FF"), is(int64_t{5}, "0805");
    is(list(1.0f), "02000000000000F03F"), is(true, "0E"), is(Item(Item::NILType()), "0B");
    is("ab", "03616200"), is(list(static_cast<const char*>(nullptr)), "0300"), is(list(String("a\0b", 3)), "036100");
    is(made([](Item& i) { i.add("a", "b"); }), "03616200"); // one text of two parts
    is(prefix("t"), "0C7400"), is(Item(bytes, 2), "0402000000ABCD");
    is(made([&](Item& i) { i.addReferee(bytes, 2); }), "C102000000ABCD");
    is(made([](Item& i) { i.addPointer(list(1)); }), "05020000000801");
    is(list(list(1)), "09020000000801"), is(joined(list(1, 2), list(3)), "080108020803");
    is(list(GUID(1, 0, 0, 2)), "0A0100000000000000" + std::string(32, '0') + "0200000000000000");
    is(made([](Item& i) { i.addNIL(), i.add(true), i.add(false), i.addWildcard(); }), "0B0E0DFE");
}

TEST(Item, TextsWithTheMarkOfAGUIDBecomeOne) {
    const std::string digits(63, 'a'), right = "GUID:" + digits + "a";
    for (const std::string& text : {right, "GUID:" + digits, right + "a", "guid:" + digits + "a", digits + "a"}) {
        const Item item = made([&](Item& i) { i.addStringOrEncodedGUID(text); });
        EXPECT_EQ(item.getIterator().getType(), text == right ? ValueType::GUID : ValueType::String) << text;
    }
}

TEST(Item, GrowsFromInlineBytesByAQuarterAnd256) {
    Item item;
    item.addPrefix(std::string(37, 'x').c_str());
    EXPECT_TRUE(item.getPlainSize() == 39u && item.getPlainCapacity() == 39u);
    item.addNIL();
    EXPECT_EQ(item.getPlainCapacity(), 304u);
    const Item view(Item::ExternalBufferMode(), item.getConstByteSpan());
    EXPECT_EQ(view.getPlainCapacity(), 0u);
    EXPECT_EQ(view.getPlainBytePointer(), item.getPlainBytePointer());
    EXPECT_THROW(item.resizePlain(0x80000000u), std::length_error);
    EXPECT_THROW(item.reservePlainTotal(0x80000000u), std::length_error);
    EXPECT_EQ(item.getPlainSize(), 40u);
}

TEST(Item, WritersTakeSourcesInsideTheItem) {
    for (const unsigned length : {3u, 30u, 100u, 290u}) { // inline, and in blocks that grow or do not
        const std::string text(length, 'q');
        const Item before = list(text, 7);
        auto same = [&](auto write, const Item& expected) {
            Item changed = before;
            write(changed);
            EXPECT_EQ(changed.getBase16(), expected.getBase16()) << length;
        };
        auto viewOf = [](const Item& i, int at) {
            Item view;
            auto it = i.getIterator();
            it.skip(at);
            it.asWeakItemView(view);
            return view;
        };
        same([](Item& i) { i.concatItem(i); }, list(text, 7, text, 7));
        same([](Item& i) { i.addItem(i); }, list(text, 7, before));
        same([](Item& i) { i.addString(i.getIterator().asWeakCStr()); }, list(text, 7, text));
        same([](Item& i) { i = *&i; }, before);
        same([](Item& i) { i.setPlain(ConstByteSpan(i.getPlainBytePointer() + i.getPlainSize() - 2, 2)); }, list(7));
        for (const int at : {0, 1}) {
            const auto assign = [&](Item& i, const Item& view) { i = view; };
            same([&](Item& i) { assign(i, viewOf(i, at)); }, at == 0 ? list(text) : list(7));
            same([&](Item& i) { i = viewOf(i, at); }, at == 0 ? list(text) : list(7));
        }
    }
}

TEST(Item, ViewsAreCopiedByTheFirstWriteAndByCopies) {
    const Item source = list("outside", 1);
    Item view(Item::ExternalBufferMode(), source.getConstByteSpan());
    const Item copy = view;
    EXPECT_NE(copy.getPlainBytePointer(), source.getPlainBytePointer());
    Item moved = std::move(view);
    EXPECT_EQ(moved.getPlainBytePointer(), source.getPlainBytePointer());
    moved.add(2);
    EXPECT_EQ(moved, list("outside", 1, 2));
    EXPECT_TRUE(source == list("outside", 1) && copy == source);
    const ConstByteSpan tooMany(source.getPlainBytePointer(), 0xFFFFFFFF);
    EXPECT_EQ(Item(Item::ExternalBufferMode(), tooMany).getPlainSize(), Item::maximumSize);
}

TEST(Item, MovesTakeTheBlockAndTheStoreTravelsAsPromised) {
    auto* const store = reinterpret_cast<kiv::Store*>(0x1000); // only carried, never followed
    Item big(store);
    big.add(std::string(100, 'b'));
    const uint8_t* block = big.getPlainBytePointer();
    Item taken = std::move(big);
    EXPECT_TRUE(taken.getPlainBytePointer() == block && taken.getStore() == store);
    EXPECT_TRUE(big.empty() && big.getPlainCapacity() == 39);
    Item small = list(1);
    taken = std::move(small);
    EXPECT_TRUE(taken == list(1) && small == list(1)) << "inline bytes are copied";
    EXPECT_EQ(taken.getStore(), nullptr) << "assignment takes the other's store, even none";
    Item shrunk = list(std::string(100, 'b'));
    shrunk = small;
    EXPECT_EQ(shrunk.getPlainCapacity(), 39u) << "and need no block";
    taken.setStore(store);
    taken.setPlain(list(2));
    taken = std::move(*&taken);
    EXPECT_TRUE(taken == list(2) && taken.getStore() == store);
}

TEST(Item, ReadersOfTheWrongTypeNeitherMoveNorWrite) {
    const Item item = list("text");
    auto it = item.getIterator();
    const auto refuses = [&]<class Value>(bool (Item::Iterator::*read)(Value&), const Value& before) {
        Value value = before;
        EXPECT_TRUE(!(it.*read)(value) && value == before && it.getOffset() == 0);
    };
    refuses(&Item::Iterator::asBool, true), refuses(&Item::Iterator::asBuffer, Buffer(3));
    refuses(&Item::Iterator::asGUID, GUID(9, 9, 9, 9)), refuses(&Item::Iterator::asSubItem, list(5));
    refuses(&Item::Iterator::asWeakSubItem, list(5)), refuses(&Item::Iterator::asInteger<long long>, 42ll);
    refuses.operator()<double>(&Item::Iterator::asFloat, 42.0);
    unsigned size = 77;
    EXPECT_FALSE(it.asNIL() || it.asWeakBuffer(size) || size != 77);
    EXPECT_STREQ(it.asWeakCStr(), "text");
    EXPECT_FALSE(it.hasNextElement() || it.asWeakCStr());
}

TEST(Item, ReadsBackWhatWasWritten) {
    const uint8_t bytes[] = {1, 2, 3};
    Item item = joined(list("text", -5, 70000, 2.5, true, GUID(1, 2, 3, 4), list(8, list())), Item(bytes, 3),
                       Item(bytes, 0), Item(Item::NILType()));
    auto it = item.getIterator();
    String text;
    int8_t narrow = 0;
    uint16_t truncated = 0;
    float number = 0;
    bool flag = false;
    GUID guid;
    Item sub, inner;
    Buffer buffer;
    unsigned size = 9;
    ASSERT_TRUE(it.asString(text) && it.asInteger(narrow) && it.asInteger(truncated) && it.asFloat(number));
    ASSERT_TRUE(it.asBool(flag) && it.asGUID(guid) && it.asWeakSubItem(sub) && it.asBuffer(buffer));
    EXPECT_TRUE(text == "text" && narrow == -5 && truncated == (70000 & 0xFFFF) && number == 2.5f && flag);
    EXPECT_TRUE(guid == GUID(1, 2, 3, 4) && sub == list(8, list()) && buffer == Buffer(bytes, 3));
    EXPECT_TRUE(sub.getPlainBytePointer() >= item.getPlainBytePointer() &&
                sub.getPlainBytePointer() < item.getPlainBytePointer() + item.getPlainSize());
    EXPECT_TRUE(it.asWeakBuffer(size) != nullptr && size == 0) << "an empty buffer is there";
    EXPECT_TRUE(it.asNIL());
    auto whole = item.getIterator();
    EXPECT_FALSE(whole.asWeakItemView(item)) << "not into the item that is read";
    EXPECT_TRUE(whole.extract(inner) == ValueType::String && inner == list("text"));
}

TEST(Item, IncompleteElementsAreNone) {
    for (const std::string& bytes :
         {"\0"s, "\x0F\0\0"s, "\x08"s, "\x01\0\0\0\0\0\0\0"s, "\x03no end"s, "\x04\x01\0\0\0"s, "\x04\x01\0\0"s,
          "\x04\xFB\xFF\xFF\xFF\0\0\0\0\0\0\0\0\0\0\0"s, // length + 5 is 0 in 32 bits
          "\x09\0\0\0\x80\0\0\0\0"s,                     // a negative length
          "\x0A" + std::string(31, 'g')}) {
        const Item item = plain(bytes);
        const auto it = item.getIterator();
        EXPECT_TRUE(it.getType() == ValueType::Invalid && it.getSize() == 0 && item.getDepth() == 0);
        EXPECT_EQ(item.asString(), "{<TRAIL:" + std::to_string(bytes.size()) + ">}");
    }
    const Item item = list(1);
    for (const int offset : {-1, 2, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        Item::Iterator it(item, offset);
        long long value = 0;
        EXPECT_FALSE(it.hasNextElement() || it.asInteger(value)) << offset;
    }
    EXPECT_FALSE(Item::Iterator().hasNextElement());
}

TEST(Item, SkippingStopsAtTheFirstIncompleteElement) {
    const Item item = joined(list(1, "two", 3), plain("\x08"));
    auto it = item.getIterator();
    EXPECT_TRUE(it.skip(2) && !it.skip(2) && it.getOffset() == 9);
    it.begin();
    it.skipToEnd();
    EXPECT_TRUE(it.getOffset() == 9 && item.getDepth() == 3);
}

TEST(Item, IteratorsThatBeginAgainSeeTextsAnew) {
    Item item = list("abcdef");
    auto it = item.getIterator();
    EXPECT_EQ(it.getSize(), 8u);
    item = list("ab");
    EXPECT_EQ(it.getSize(), 4u) << "and never read past the end";
    item = list("abcdef");
    EXPECT_EQ(it.getSize(), 8u);
    item = list("ab", "xy"); // ends where the long text did
    it.begin();
    EXPECT_EQ(it.getSize(), 4u);
}

TEST(Item, PathsLoseTheirLastElements) {
    const Item path = list("a", 2, "c");
    Item out;
    EXPECT_TRUE(path.parent(out) && out == list("a", 2) && path.trail(out) && out == list("c"));
    out = path;
    out.reduceDepthTo(7);
    EXPECT_EQ(out, path);
    EXPECT_TRUE(out.parent(out) && out == list("a", 2)) << "into itself";
    out.reduceDepthTo(1);
    EXPECT_EQ(out, list("a"));
    EXPECT_TRUE(out.trail() && out.parent());
    EXPECT_FALSE(out.parent() || out.trail());
}

TEST(Item, CleanKeysAreDecodableAndHaveNoBounds) {
    Item many;
    for (int i = 0; i < 64; ++i) many.add(i);
    EXPECT_TRUE(many.isCleanKey() && nested(15).isCleanKey() && list("a", 1, 2.0, GUID(), list("b")).isCleanKey());
    many.add(1);
    for (const Item& unclean : {many, nested(16), list(std::nan("")), list(list(std::nan(""))), plain("\xFE"),
                                plain("\x08\x01\xC0"), plain("\x08\x01\x08"), list(std::string(65536, 'x'))})
        EXPECT_FALSE(unclean.isCleanKey()) << unclean.getDepth();
}

TEST(Item, SmallItemsAndReadingInPlaceAllocateNothing) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library has its own operator new here";
    const std::string thirtySeven(37, 'x');
    const Item big = list(std::string(100, 'b'), list(1, list(2)), 3, 4.0);
    const auto work = [&] {
        Item built;
        built.addString(thirtySeven.c_str());
        const Item copy = built;
        Item assigned, inner, view;
        assigned = copy;
        EXPECT_TRUE(Item::compare(copy, assigned) == 0 && copy.getIterator().asWeakCStr()[36] == 'x');
        Item deep = 1, deepInMoreBytes = plain("\x01\x01\0\0\0\0\0\0\0"s);
        for (int level = 0; level < 6; ++level) deep = list(deep), deepInMoreBytes = list(deepInMoreBytes);
        EXPECT_EQ(Item::compare(deep, deepInMoreBytes), 0);
        auto it = big.getIterator();
        int integer = 0;
        double number = 0;
        EXPECT_TRUE(it.asWeakCStr() && it.asWeakSubItem(inner) && it.asInteger(integer) && it.asFloat(number));
        EXPECT_TRUE(inner.getIterator().asWeakItemView(view) && Item::compare(big, big) == 0);
    };
    EXPECT_EQ(support::allocationsOf(work), 0u);
    EXPECT_EQ(support::allocationsOf([&] { const Item copy = big; }), 1u) << "the counter counts";
    EXPECT_EQ(sizeof(Item), 64u);
}

} // namespace
