// Hunts: look-ups that lose their step over values of two elements, views that outlive or copy their bytes, and
// conversions that differ from what an input stream would read.
#include "kiv/data/Item.h"
#include "tests/data/Items.h"
#include "tests/support/LogLines.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using namespace kiv;
using namespace support;

TEST(ItemTable, FindsTheValueBehindItsKey) {
    support::OutputCapture console;
    const Item item = list("a", 1, "b", 2);
    EXPECT_EQ(item.kvFind("b").getOffset(), 8);
    for (const char* missing : {"c", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(item.kvTryFind(missing).getOffset(), static_cast<int>(item.getPlainSize()));
    EXPECT_EQ(console.take(), "") << "a miss is logged unless it was only a try";
    item.kvFind("missed");
    EXPECT_EQ(console.take(), "[WARNING] key in item not found: missed\n");
    auto found = [](const Item& pairs, const char* key) { return pairs.kvTryFind(key).hasNextElement(); };
    EXPECT_TRUE(found(joined(prefix("a"), list(1)), "a"));
    EXPECT_FALSE(found(list("a", 1, 5, 6, "b", 2), "b")) << "a key that is no text stops the walk";
    EXPECT_FALSE(found(list("", 1, "b", 2), "b")) << "so does an empty one";
    EXPECT_FALSE(found(list("a"), "a")) << "a key without value has none";
    const Item wide = joined(list("a"), table(list("x", 1)), list("b"), prefix("squirrel"),
                             Item(reinterpret_cast<const uint8_t*>("xyz"), 3), list("c", 7));
    int value = 0;
    auto it = wide.kvFind("c");
    EXPECT_TRUE(it.asInteger(value) && value == 7) << "tables and closures are one value of two elements";
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
    EXPECT_TRUE(views["one"].getPlainBytePointer() >= item.getPlainBytePointer() &&
                views["one"].getPlainBytePointer() < item.getPlainBytePointer() + item.getPlainSize());
    const Item twice = list("a", 1, "a", 2);
    EXPECT_EQ(twice.kvToWeakMap()["a"], Item(1)) << "the first wins, as in a look-up";

    const Item sources[] = {table(list("x", 5)), list(list("x", 5))}; // outlive the views into them
    for (const Item& source : sources) {
        auto it = source.getIterator();
        EXPECT_TRUE(it.asWeakTable(views) && !it.hasNextElement());
        EXPECT_EQ(views["x"], Item(5));
    }
    const Item other = joined(prefix("other"), list(list("x", 6)));
    auto it = other.getIterator();
    EXPECT_TRUE(!it.asWeakTable(views) && it.getOffset() == 0 && views["x"] == Item(5));
}

TEST(ItemConvert, IntegersComeFromNumbersAndLeadingDigits) {
    auto is = [](const Item& item, const std::string& expected) {
        bool success;
        auto it = item.getIterator();
        const long long value = it.convertAsInteger(success);
        EXPECT_EQ(success ? std::to_string(value) : "none", expected) << item.asString();
        EXPECT_EQ(it.getOffset() != 0, success) << "a failed conversion does not move";
    };
    const std::string greatest = std::to_string(std::numeric_limits<long long>::max());
    const std::string least = std::to_string(std::numeric_limits<long long>::min());
    is(2.9, "2"), is(-2.9, "-2"), is(-1e300, least), is(9223372036854775808.0, greatest), is(std::nan(""), "0");
    is(" \t-12abc", "-12"), is("+7", "7"), is("99999999999999999999", greatest), is("-99999999999999999999", least);
    is(true, "1"), is(Item(Item::NILType()), "none");
    for (const char* text : {"", "abc", "-", "+-1", "- 1"}) is(text, "none");
}

TEST(ItemConvert, FloatsComeFromWhatAStreamWouldExtract) {
    auto is = [](const char* text, double expected, bool isExpected = true) {
        bool success = !isExpected;
        const Item item(text);
        EXPECT_EQ(item.getIterator().convertAsFloat(success), expected) << text;
        EXPECT_EQ(success, isExpected) << text;
    };
    is("12abc", 12), is("\n -1.5e2x", -150), is("+.5", .5), is("1.2.3", 1.2), is("0x10", 0), is("1e-400", 0);
    is("0.0001e-99999999999999999999", 0), is("5e-324", 5e-324), is("0e9999", 0);
    for (const char* text : {"", " ", "abc", "nan", "inf", "1e400", "1e", "1e+", ".", "-", "1000e99999999999999999999"})
        is(text, 0, false);
}

TEST(ItemConvert, TextsAndTruthComeFromMostValues) {
    auto text = [](const Item& item, const String& expected) {
        EXPECT_EQ(item.getIterator().convertAsString(), expected);
    };
    text(-5, "-5"), text(0.1, "0.1"), text(1e300, "1e+300"), text(false, "false"), text(GUID(), String(64, '0'));
    text(Item::NILType(), "");
    auto truth = [](const Item& item) { return item.getIterator().convertAsBool(); };
    for (const Item& item : {Item(""), Item("0"), list(list()), Item(GUID()), Item(2), Item(.1), Item(NAN)})
        EXPECT_TRUE(truth(item)) << item.asString();
    for (const Item& item : {Item(0), Item(-0.0), Item(false), Item(), Item(Item::NILType())})
        EXPECT_FALSE(truth(item)) << item.asString();
}

} // namespace
