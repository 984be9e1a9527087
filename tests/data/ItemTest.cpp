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

using kiv::Buffer;
using kiv::ConstByteSpan;
using kiv::GUID;
using kiv::Item;
using kiv::String;
using kiv::ValueType;
using support::list;
using support::plain;

template <class Write>
std::string encoded(Write write) {
    Item item;
    write(item);
    return item.getBase16().c_str();
}

TEST(Item, EncodesEveryTypeToItsBytes) {
    const uint8_t bytes[] = {0xAB, 0xCD};
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(127); }), "087F");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(-128); }), "0880");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(128); }), "078000");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(-129); }), "077FFF");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(32767); }), "07FF7F");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(32768); }), "0600800000");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(2147483647); }), "06FFFFFF7F");
    EXPECT_EQ(encoded([](Item& i) { i.addInteger(2147483648); }), "010000008000000000");
    EXPECT_EQ(encoded([](Item& i) { i.add(4294967295u); }), "01FFFFFFFF00000000");
    EXPECT_EQ(encoded([](Item& i) { i.add(0xFFFFFFFFFFFFFFFFull); }), "08FF");
    EXPECT_EQ(encoded([](Item& i) { i.add(1.0f); }), "02000000000000F03F");
    EXPECT_EQ(encoded([](Item& i) { i.add("ab"); }), "03616200");
    EXPECT_EQ(encoded([](Item& i) { i.add("a", "b"); }), "03616200");
    EXPECT_EQ(encoded([](Item& i) { i.add(static_cast<const char*>(nullptr)); }), "0300");
    EXPECT_EQ(encoded([](Item& i) { i.add(String("a\0b", 3)); }), "036100");
    EXPECT_EQ(encoded([](Item& i) { i.addPrefix("t"); }), "0C7400");
    EXPECT_EQ(encoded([&](Item& i) { i.addBuffer(bytes, 2); }), "0402000000ABCD");
    EXPECT_EQ(encoded([&](Item& i) { i.addReferee(bytes, 2); }), "C102000000ABCD");
    EXPECT_EQ(encoded([](Item& i) { i.addPointer(list(1)); }), "05020000000801");
    EXPECT_EQ(encoded([](Item& i) { i.add(list(1)); }), "09020000000801");
    EXPECT_EQ(encoded([](Item& i) { i.concatItem(list(1, 2)); }), "08010802");
    EXPECT_EQ(encoded([](Item& i) { i.add(GUID(1, 0, 0, 2)); }),
              "0A0100000000000000" + std::string(32, '0') + "0200000000000000");
    EXPECT_EQ(encoded([](Item& i) { i.addNIL(), i.add(true), i.add(false), i.addWildcard(); }), "0B0E0DFE");
    EXPECT_EQ(Item(200).getBase16(), "07C800");
    EXPECT_EQ(Item(int64_t{5}).getBase16(), "0805");
    EXPECT_EQ(Item(true).getBase16(), "0E");
    EXPECT_EQ(Item(Item::NILType()).getBase16(), "0B");
    EXPECT_EQ(Item(bytes, 2).getBase16(), "0402000000ABCD");
}

TEST(Item, TextsWithTheMarkOfAGUIDBecomeOne) {
    auto typeOf = [](const std::string& text) {
        Item item;
        item.addStringOrEncodedGUID(text);
        return item.getIterator().getType();
    };
    EXPECT_EQ(typeOf("GUID:" + std::string(64, 'a')), ValueType::GUID);
    EXPECT_EQ(typeOf("GUID:" + std::string(63, 'a')), ValueType::String);
    EXPECT_EQ(typeOf("GUID:" + std::string(65, 'a')), ValueType::String);
    EXPECT_EQ(typeOf("guid:" + std::string(64, 'a')), ValueType::String);
    EXPECT_EQ(typeOf(std::string(64, 'a')), ValueType::String);
}

TEST(Item, GrowsFromInlineBytesByAQuarterAnd256) {
    Item item;
    item.addPrefix(std::string(37, 'x').c_str());
    EXPECT_EQ(item.getPlainSize(), 39u);
    EXPECT_EQ(item.getPlainCapacity(), 39u);
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
    for (const unsigned length : {3u, 30u, 100u, 290u}) {
        const std::string text(length, 'q');
        const Item before = list(text, 7);
        auto same = [&](auto write, const Item& expected) {
            Item changed = before;
            write(changed);
            EXPECT_EQ(changed.getBase16(), expected.getBase16()) << length;
        };
        same([](Item& i) { i.concatItem(i); }, list(text, 7, text, 7));
        same([](Item& i) { i.addItem(i); }, list(text, 7, before));
        same([](Item& i) { i.addString(i.getIterator().asWeakCStr()); }, list(text, 7, text));
        same([](Item& i) { i = *&i; }, before);
        same([](Item& i) { i.setPlain(ConstByteSpan(i.getPlainBytePointer() + i.getPlainSize() - 2, 2)); }, list(7));
        for (const int at : {0, 1}) {
            auto viewOf = [at](const Item& i) {
                Item view;
                auto it = i.getIterator();
                it.skip(at);
                it.asWeakItemView(view);
                return view;
            };
            const Item expected = at == 0 ? list(text) : list(7);
            auto assignCopy = [&](Item& i) {
                const Item view = viewOf(i);
                i = view;
            };
            same(assignCopy, expected);
            same([&](Item& i) { i = viewOf(i); }, expected);
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
    EXPECT_NE(moved.getPlainBytePointer(), source.getPlainBytePointer());
    EXPECT_EQ(moved, list("outside", 1, 2));
    EXPECT_EQ(source, list("outside", 1));
    EXPECT_EQ(copy, source);
    const ConstByteSpan tooMany(source.getPlainBytePointer(), 0xFFFFFFFF);
    EXPECT_EQ(Item(Item::ExternalBufferMode(), tooMany).getPlainSize(), Item::maximumSize);
}

TEST(Item, MovesTakeTheBlockAndTheStoreTravelsAsPromised) {
    auto* const store = reinterpret_cast<kiv::Store*>(0x1000); // only carried, never followed
    Item big(store);
    big.add(std::string(100, 'b'));
    const uint8_t* block = big.getPlainBytePointer();
    Item taken = std::move(big);
    EXPECT_EQ(taken.getPlainBytePointer(), block);
    EXPECT_EQ(taken.getStore(), store);
    EXPECT_TRUE(big.empty());
    EXPECT_EQ(big.getPlainCapacity(), 39u);
    Item small = list(1);
    taken = std::move(small);
    EXPECT_EQ(taken, list(1));
    EXPECT_EQ(small, list(1)) << "inline bytes are copied";
    Item shrunk = list(std::string(100, 'b'));
    shrunk = small;
    EXPECT_EQ(shrunk.getPlainCapacity(), 39u) << "and need no block";
    EXPECT_EQ(taken.getStore(), nullptr) << "assignment takes the other's store, even none";
    taken.setStore(store);
    taken.setPlain(list(2));
    EXPECT_EQ(taken.getStore(), store);
    taken = std::move(*&taken);
    EXPECT_EQ(taken, list(2));
}

TEST(Item, ReadersOfTheWrongTypeNeitherMoveNorWrite) {
    const Item item = list("text");
    auto it = item.getIterator();
    long long integer = 42;
    double number = 42;
    bool flag = true;
    Buffer buffer(3);
    GUID guid(9, 9, 9, 9);
    Item nested = list(5);
    unsigned size = 77;
    EXPECT_FALSE(it.asInteger(integer) || it.asFloat(number) || it.asBool(flag) || it.asBuffer(buffer));
    EXPECT_FALSE(it.asGUID(guid) || it.asNIL() || it.asSubItem(nested) || it.asWeakSubItem(nested) ||
                 it.asWeakBuffer(size));
    EXPECT_EQ(it.getOffset(), 0);
    EXPECT_EQ(integer, 42);
    EXPECT_EQ(number, 42);
    EXPECT_EQ(buffer.getSize(), 3u);
    EXPECT_EQ(guid, GUID(9, 9, 9, 9));
    EXPECT_EQ(nested, list(5));
    EXPECT_EQ(size, 77u);
    EXPECT_STREQ(it.asWeakCStr(), "text");
    EXPECT_FALSE(it.hasNextElement());
    EXPECT_EQ(it.asWeakCStr(), nullptr);
}

TEST(Item, ReadsBackWhatWasWritten) {
    const uint8_t bytes[] = {1, 2, 3};
    Item item = list("text", -5, 70000, 2.5, true, GUID(1, 2, 3, 4), list(8, list()));
    item.addBuffer(bytes, 3);
    item.addBuffer(bytes, 0);
    item.addNIL();
    auto it = item.getIterator();
    String text;
    int8_t narrow = 0;
    uint16_t truncated = 0;
    float number = 0;
    bool flag = false;
    GUID guid;
    Item nested, inner;
    Buffer buffer;
    unsigned size = 9;
    ASSERT_TRUE(it.asString(text) && it.asInteger(narrow) && it.asInteger(truncated) && it.asFloat(number));
    ASSERT_TRUE(it.asBool(flag) && it.asGUID(guid) && it.asWeakSubItem(nested) && it.asBuffer(buffer));
    EXPECT_EQ(text, "text");
    EXPECT_EQ(narrow, -5);
    EXPECT_EQ(truncated, 70000 & 0xFFFF);
    EXPECT_EQ(number, 2.5f);
    EXPECT_TRUE(flag);
    EXPECT_EQ(guid, GUID(1, 2, 3, 4));
    EXPECT_EQ(nested, list(8, list()));
    EXPECT_GE(nested.getPlainBytePointer(), item.getPlainBytePointer());
    EXPECT_LT(nested.getPlainBytePointer(), item.getPlainBytePointer() + item.getPlainSize());
    EXPECT_EQ(buffer.getSize(), 3u);
    EXPECT_NE(it.asWeakBuffer(size), nullptr) << "an empty buffer is there";
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(it.asNIL());
    auto whole = item.getIterator();
    EXPECT_FALSE(whole.asWeakItemView(item)) << "not into the item that is read";
    EXPECT_EQ(whole.extract(inner), ValueType::String);
    EXPECT_EQ(inner, list("text"));
}

TEST(Item, IncompleteElementsAreNone) {
    auto none = [](const std::string& bytes) {
        const Item item = plain(bytes);
        const auto it = item.getIterator();
        EXPECT_EQ(it.getType(), ValueType::Invalid);
        EXPECT_EQ(it.getSize(), 0u);
        EXPECT_EQ(item.getDepth(), 0);
        EXPECT_EQ(item.asString(), "{<TRAIL:" + std::to_string(bytes.size()) + ">}");
    };
    none(std::string("\0", 1));
    none(std::string("\x0F\0\0", 3));
    none("\x08");
    none(std::string("\x01\0\0\0\0\0\0\0", 8));
    none("\x03no end");
    none(std::string("\x04\x01\0\0\0", 5));
    none(std::string("\x04\x01\0\0", 4));
    none(std::string("\x04\xFB\xFF\xFF\xFF\0\0\0\0\0\0\0\0\0\0\0", 16)); // length + 5 is 0 in 32 bits
    none(std::string("\x09\0\0\0\x80\0\0\0\0", 9));                      // a negative length
    none("\x0A" + std::string(31, 'g'));
    const Item item = list(1);
    for (const int offset : {-1, 2, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        Item::Iterator it(item, offset);
        long long value = 0;
        EXPECT_FALSE(it.hasNextElement() || it.asInteger(value)) << offset;
    }
    EXPECT_FALSE(Item::Iterator().hasNextElement());
}

TEST(Item, SkippingStopsAtTheFirstIncompleteElement) {
    Item item = list(1, "two", 3);
    item.concatItem(plain("\x08"));
    auto it = item.getIterator();
    EXPECT_TRUE(it.skip(2));
    EXPECT_FALSE(it.skip(2));
    EXPECT_EQ(it.getOffset(), 9);
    it.begin();
    it.skipToEnd();
    EXPECT_EQ(it.getOffset(), 9);
    EXPECT_EQ(item.getDepth(), 3);
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
    EXPECT_TRUE(path.parent(out));
    EXPECT_EQ(out, list("a", 2));
    EXPECT_TRUE(path.trail(out));
    EXPECT_EQ(out, list("c"));
    out = path;
    out.reduceDepthTo(7);
    EXPECT_EQ(out, path);
    out.reduceDepthTo(1);
    EXPECT_EQ(out, list("a"));
    EXPECT_TRUE(out.trail());
    EXPECT_TRUE(out.parent());
    EXPECT_FALSE(out.parent());
    EXPECT_FALSE(out.trail());
    out = path;
    EXPECT_TRUE(out.parent(out)) << "into itself";
    EXPECT_EQ(out, list("a", 2));
}

TEST(Item, CleanKeysAreDecodableAndHaveNoBounds) {
    auto nested = [](int levels) {
        Item item;
        for (int i = 1; i < levels; ++i) {
            Item outer;
            outer.addItem(item);
            item = outer;
        }
        return item;
    };
    Item many;
    for (int i = 0; i < 64; ++i) many.add(i);
    EXPECT_TRUE(list("a", 1, 2.0, GUID(), list("b")).isCleanKey());
    EXPECT_TRUE(many.isCleanKey());
    many.add(1);
    EXPECT_FALSE(many.isCleanKey());
    EXPECT_TRUE(nested(16).isCleanKey());
    EXPECT_FALSE(nested(17).isCleanKey());
    EXPECT_FALSE(list(std::nan("")).isCleanKey());
    EXPECT_FALSE(list(list(std::nan(""))).isCleanKey());
    EXPECT_FALSE(Item(Item::WildcardMode()).isCleanKey());
    EXPECT_FALSE(plain("\x08\x01\xC0").isCleanKey());
    EXPECT_FALSE(plain("\x08\x01\x08").isCleanKey());
    EXPECT_FALSE(list(std::string(65536, 'x')).isCleanKey());
}

TEST(Item, SmallItemsAndReadingInPlaceAllocateNothing) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library has its own operator new here";
    const std::string thirtySeven(37, 'x');
    EXPECT_EQ(support::allocationsOf([&] {
                  Item built;
                  built.addString(thirtySeven.c_str());
                  const Item copy = built;
                  Item assigned;
                  assigned = copy;
                  EXPECT_EQ(Item::compare(copy, assigned), 0);
                  EXPECT_EQ(copy.getIterator().asWeakCStr()[36], 'x');
                  Item deep = 1, deepInMoreBytes = plain(std::string("\x01\x01\0\0\0\0\0\0\0", 9));
                  for (int level = 0; level < 6; ++level) deep = list(deep), deepInMoreBytes = list(deepInMoreBytes);
                  EXPECT_EQ(Item::compare(deep, deepInMoreBytes), 0);
              }),
              0u);
    const Item big = list(std::string(100, 'b'), list(1, list(2)), 3, 4.0);
    EXPECT_EQ(support::allocationsOf([&] {
                  auto it = big.getIterator();
                  Item nested, view;
                  int integer = 0;
                  double number = 0;
                  EXPECT_TRUE(it.asWeakCStr() && it.asWeakSubItem(nested));
                  EXPECT_TRUE(it.asInteger(integer) && it.asFloat(number));
                  EXPECT_TRUE(nested.getIterator().asWeakItemView(view));
                  EXPECT_EQ(Item::compare(big, big), 0);
              }),
              0u);
    EXPECT_EQ(support::allocationsOf([&] { const Item copy = big; }), 1u) << "the counter counts";
    EXPECT_EQ(sizeof(Item), 64u);
}

} // namespace
