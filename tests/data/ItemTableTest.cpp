// Hunts: look-ups that lose their step over values of two elements, views that outlive or copy their bytes, and
// conversions that differ from what an input stream would read.
#include "kiv/data/Item.h"
#include "kiv/logging/LogBackend.h"
#include "tests/data/Items.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using kiv::Buffer;
using kiv::GUID;
using kiv::Item;
using kiv::Map;
using kiv::SmartCStr;
using kiv::String;
using support::list;
using support::plain;

Item table(const Item& pairs) {
    Item item;
    item.addPrefix("table");
    item.addItem(pairs);
    return item;
}

TEST(ItemTable, FindsTheValueBehindItsKey) {
    const Item item = list("a", 1, "b", 2);
    EXPECT_EQ(item.kvFind("b").getOffset(), 8);
    EXPECT_EQ(item.kvTryFind("c").getOffset(), static_cast<int>(item.getPlainSize()));
    EXPECT_EQ(item.kvTryFind("").getOffset(), static_cast<int>(item.getPlainSize()));
    EXPECT_EQ(item.kvTryFind(nullptr).getOffset(), static_cast<int>(item.getPlainSize()));
    auto found = [](const Item& pairs, const char* key) { return pairs.kvTryFind(key).hasNextElement(); };
    Item prefixed;
    prefixed.addPrefix("a");
    prefixed.add(1);
    EXPECT_TRUE(found(prefixed, "a"));
    EXPECT_FALSE(found(list("a", 1, 5, 6, "b", 2), "b")) << "a key that is no text stops the walk";
    EXPECT_FALSE(found(list("", 1, "b", 2), "b")) << "so does an empty one";
    EXPECT_FALSE(found(list("a"), "a")) << "a key without value has none";
    Item nested = list("a");
    nested.concatItem(table(list("x", 1)));
    nested.add("b");
    nested.addPrefix("squirrel");
    nested.addBuffer(Buffer(3));
    nested.add("c");
    nested.add(7);
    int value = 0;
    auto it = nested.kvFind("c");
    EXPECT_TRUE(it.asInteger(value)) << "tables and closures are one value of two elements";
    EXPECT_EQ(value, 7);
}

TEST(ItemTable, AMissIsLoggedUnlessOnlyTried) {
    std::string logged;
    kiv::logging::LogBackend::registerBackend(false);
    auto connection =
        kiv::logging::LogBackend::getSignalNewLogMessage().connect([&](int, const char* text) { logged += text; });
    const Item item = list("a", 1);
    item.kvTryFind("tried");
    EXPECT_EQ(logged, "");
    item.kvFind("missed");
    EXPECT_EQ(logged, "[WARNING] key in item not found: missed");
}

TEST(ItemTable, MapsAndTablesTurnIntoEachOther) {
    Map<String, Item> map{{"one", 1}, {"none", Item()}, {"table", table(list("x", 1))}};
    Item item;
    item.kvFromMap(map);
    Map<SmartCStr, Item> views = item.kvToWeakMap();
    ASSERT_EQ(views.size(), 3u);
    EXPECT_EQ(views["one"], Item(1));
    EXPECT_EQ(views["none"], Item(Item::NILType()));
    EXPECT_EQ(views["table"], table(list("x", 1)));
    EXPECT_GE(views["one"].getPlainBytePointer(), item.getPlainBytePointer());
    EXPECT_LT(views["one"].getPlainBytePointer(), item.getPlainBytePointer() + item.getPlainSize());
    const Item twice = list("a", 1, "a", 2);
    EXPECT_EQ(twice.kvToWeakMap()["a"], Item(1)) << "the first wins, as in a look-up";

    const Item sources[] = {table(list("x", 5)), list(list("x", 5))}; // outlive the views into them
    for (const Item& source : sources) {
        auto it = source.getIterator();
        EXPECT_TRUE(it.asWeakTable(views));
        EXPECT_FALSE(it.hasNextElement());
        EXPECT_EQ(views["x"], Item(5));
    }
    Item other;
    other.addPrefix("other");
    other.addItem(list("x", 6));
    auto it = other.getIterator();
    EXPECT_FALSE(it.asWeakTable(views));
    EXPECT_EQ(it.getOffset(), 0);
    EXPECT_EQ(views["x"], Item(5));
}

TEST(ItemConvert, IntegersComeFromNumbersAndLeadingDigits) {
    auto integer = [](const Item& item) {
        bool success;
        const long long value = item.getIterator().convertAsInteger(success);
        return success ? std::to_string(value) : "none";
    };
    const std::string greatest = std::to_string(std::numeric_limits<long long>::max());
    const std::string least = std::to_string(std::numeric_limits<long long>::min());
    EXPECT_EQ(integer(2.9), "2");
    EXPECT_EQ(integer(-2.9), "-2");
    EXPECT_EQ(integer(-1e300), least);
    EXPECT_EQ(integer(9223372036854775808.0), greatest);
    EXPECT_EQ(integer(std::nan("")), "0");
    EXPECT_EQ(integer(" \t-12abc"), "-12");
    EXPECT_EQ(integer("+7"), "7");
    EXPECT_EQ(integer("99999999999999999999"), greatest);
    EXPECT_EQ(integer("-99999999999999999999"), least);
    EXPECT_EQ(integer(true), "1");
    for (const char* text : {"", "abc", "-", "+-1", "- 1"}) EXPECT_EQ(integer(text), "none") << text;
    EXPECT_EQ(integer(Item::NILType()), "none");
    const Item pair = list("x", 1);
    auto it = pair.getIterator();
    EXPECT_EQ(it.convertAsInteger(), 0);
    EXPECT_EQ(it.getOffset(), 0) << "a failed conversion does not move";
}

TEST(ItemConvert, FloatsComeFromWhatAStreamWouldExtract) {
    auto number = [](const char* text, double expected) {
        bool success;
        const Item item(text);
        EXPECT_EQ(item.getIterator().convertAsFloat(success), expected) << text;
        EXPECT_TRUE(success) << text;
    };
    number("12abc", 12);
    number("\n -1.5e2x", -150);
    number("+.5", .5);
    number("1.2.3", 1.2);
    number("0x10", 0);
    number("1e-400", 0);
    number("0.0001e-99999999999999999999", 0);
    number("5e-324", 5e-324);
    number("0e9999", 0);
    for (const char* text :
         {"", " ", "abc", "nan", "inf", "1e400", "1e", "1e+", ".", "-", "1000e99999999999999999999"}) {
        bool success = true;
        const Item item(text);
        EXPECT_EQ(item.getIterator().convertAsFloat(success), 0) << text;
        EXPECT_FALSE(success) << text;
    }
}

TEST(ItemConvert, TextsAndTruthComeFromMostValues) {
    auto text = [](const Item& item) { return item.getIterator().convertAsString(); };
    EXPECT_EQ(text(-5), "-5");
    EXPECT_EQ(text(0.1), "0.1");
    EXPECT_EQ(text(1e300), "1e+300");
    EXPECT_EQ(text(false), "false");
    EXPECT_EQ(text(GUID()), String(64, '0'));
    EXPECT_EQ(text(Item::NILType()), "");
    auto truth = [](const Item& item) { return item.getIterator().convertAsBool(); };
    for (const Item& item : {Item(""), Item("0"), list(list()), Item(GUID()), Item(2), Item(.1), Item(NAN)}) {
        EXPECT_TRUE(truth(item)) << item.asString().c_str();
    }
    for (const Item& item : {Item(0), Item(-0.0), Item(false), Item(), Item(Item::NILType())}) {
        EXPECT_FALSE(truth(item)) << item.asString().c_str();
    }
}

} // namespace
