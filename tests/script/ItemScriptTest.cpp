#include "ScriptValues.h"
#include "kiv/core/Random.h"
#include "kiv/data/Item.h"
#include "kiv/script/Access.h"
#include "kiv/script/ItemObject.h"
#include "tests/support/LogLines.h"

#include <gmock/gmock.h>

#include <cfloat>
#include <climits>
#include <cmath>

namespace {

using kiv::GUID;
using kiv::Item;
using kiv::Trust;
using kivSq::Object;
using testing::ElementsAre;
using testing::HasSubstr;

class ItemScriptTest : public testing::Test, protected ScriptValues {
protected:
    // The text of the item that a script value becomes.
    std::string itemOf(const std::string& expression) { return Item(valueOf(expression)).asString().c_str(); }
    Item there(const Item& item, Trust trust = Trust::Data) {
        Object value;
        EXPECT_TRUE(item.decodeElementAsSquirrel(0, value, trust));
        return Item(value);
    }
};

TEST_F(ItemScriptTest, ValuesBecomeElements) {
    const char* const rows[][2] = {
        {"null", "{<NIL>}"},
        {"true", "{<BOOL:TRUE>}"},
        {"-129", "{<INT:-129>}"},
        {"0.25", "{<FLT:0.25>}"},
        {"\"text\"", "{<STR:text>}"},
        {"\"a\\x00b\"", "{<BUF:3>}"},
        {"[]", "{<ITEM:{}>}"},
        {"{}", "{<PREFIX:table><ITEM:{}>}"},
        {"[1, [null], {a = [2]}, 3]",
         "{<ITEM:{<INT:1><ITEM:{<NIL>}><PREFIX:table><ITEM:{<STR:a><ITEM:{<INT:2>}>}><INT:3>}>}"},
        {"{[7] = 8}", "{<PREFIX:table><ITEM:{<INT:7><INT:8>}>}"},
        {"print", "{<NIL>}"},
        {"class {}()", "{<NIL>}"},
    };
    for (const auto& [expression, text] : rows) EXPECT_EQ(itemOf(expression), text) << expression;
    EXPECT_EQ(itemOf("(function() { import(\"kiv.GUID\"); return kiv.GUID() })()"),
              std::string("{<GUID:") + GUID().toString().c_str() + ">}");
    // Containers as keys, each with its own value.
    EXPECT_EQ(itemOf("(@() (@(k) {[k] = {b = 1}})([5]))()"),
              "{<PREFIX:table><ITEM:{<ITEM:{<INT:5>}><PREFIX:table><ITEM:{<STR:b><INT:1>}>}>}");
}

std::string bytes(const Item& item) {
    return item.getBase16().c_str();
}

// A value of any kind, its depth bounded.
Item randomValue(kiv::Random& random, int depth) {
    static const long long integers[] = {0,         -1,        INT8_MIN,      INT8_MAX,
                                         INT16_MIN, INT16_MAX, INT16_MAX + 1, INT32_MIN,
                                         INT32_MAX, INT64_MIN, INT64_MAX,     1LL << 53};
    static const double floats[] = {0.0, -0.0, 0.1, DBL_MAX, DBL_MIN, 5e-324, INFINITY, -INFINITY};
    const unsigned count = random.randomUInt() % 4;
    Item out, nested;
    switch (random.randomUInt() % (depth > 0 ? 9 : 7)) {
    case 0:
        return Item(integers[random.randomUInt() % std::size(integers)]);
    case 1:
        return Item(floats[random.randomUInt() % std::size(floats)]);
    case 2:
        return Item(random.randomUInt() % 2 == 0);
    case 3:
        return Item(Item::NILType());
    case 4:
        return Item(std::string(random.randomUInt() % 50, 'x').c_str());
    case 5:
        return Item(GUID(random.randomUInt64(), 2, 3, 4));
    case 6:
        return Item(reinterpret_cast<const uint8_t*>("a\0b"), 3);
    case 7:
        for (unsigned i = 0; i < count; ++i) nested.concatItem(randomValue(random, depth - 1));
        out.addItem(nested);
        return out;
    default:
        // The engine keeps no order of pairs.
        if (count > 0) {
            nested.concatItem(random.randomUInt() % 2 == 0 ? Item("key") : Item(7));
            nested.concatItem(randomValue(random, depth - 1));
        }
        out.addPrefix("table");
        out.addItem(nested);
        return out;
    }
}

TEST_F(ItemScriptTest, RoundTripsAreExact) {
    kiv::SeededRandom random(4711);
    for (int i = 0; i < 3000; ++i) {
        const Item item = randomValue(random, 6);
        const Item back = there(item);
        ASSERT_EQ(bytes(back), bytes(item)) << item.asString().c_str();
    }
    Item nan(NAN);
    EXPECT_EQ(bytes(there(nan)), bytes(nan));
}

TEST_F(ItemScriptTest, WhatOnlyItemsHaveReadsAsTextOrNull) {
    Item nested(Item::WildcardMode{});
    nested.addPrefix("table");
    nested.addInteger(1);
    nested.addPointer(nested.getPlainBytePointer(), 1);
    nested.addString("squirrel");
    nested.addBuffer(nullptr, 0);
    Item item;
    item.addItem(nested);
    EXPECT_EQ(std::string(there(item).asString().c_str()),
              "{<ITEM:{<NIL><STR:table><INT:1><NIL><STR:squirrel><STR:>}>}");

    // Pairs: the first of equal keys, none without key or value.
    Item pairs;
    for (const int value : {1, 2}) {
        pairs.addString("a");
        pairs.addInteger(value);
    }
    pairs.addNIL();
    pairs.addPrefix("table");
    pairs.addItem(Item());
    pairs.addString("last");
    Item table;
    table.addPrefix("table");
    table.addItem(pairs);
    EXPECT_EQ(std::string(there(table).asString().c_str()), "{<PREFIX:table><ITEM:{<STR:a><INT:1>}>}");
}

TEST_F(ItemScriptTest, DepthIsLimited) {
    support::LogLines log;
    // 128 levels are good.
    Item item;
    for (int depth = 0; depth < Item::maximumDepth; ++depth) {
        Item outer;
        outer.addItem(item);
        item = outer;
    }
    EXPECT_EQ(bytes(there(item)), bytes(item));
    Object value = Object::from(1);
    Item tooDeep;
    tooDeep.addItem(item);
    EXPECT_FALSE(tooDeep.decodeElementAsSquirrel(0, value));
    EXPECT_TRUE(value.isInteger());
    EXPECT_EQ(log.take().size(), 1u);
    for (int depth = 0; depth < 10000; ++depth) {
        Item outer;
        outer.addItem(item);
        item = outer;
    }
    EXPECT_FALSE(item.decodeElementAsSquirrel(0, value));

    ASSERT_TRUE(vm.executeString("deep <- []; for (local i = 0; i < 10000; ++i) deep = [deep];"
                                 "cycle <- {}; cycle.a <- [1, cycle, cycle]; import(\"kiv.Item\")",
                                 "t"));
    for (const char* expression : {"deep", "cycle"}) {
        Item kept("kept");
        kept.addSquirrel(valueOf(expression));
        EXPECT_EQ(std::string(kept.asString().c_str()), "{<STR:kept><NIL>}");
        EXPECT_EQ(eval(std::string("kiv.Item(") + expression + ")"), "error: nested deeper than 128 levels");
    }
    vm.executeString("cycle.a.clear()", "t");
}

TEST_F(ItemScriptTest, CodeNeedsTrust) {
    support::LogLines log;
    Item code(valueOf("function(x) { return x + 1 }"));
    ASSERT_EQ(code.getDepth(), 2);
    Item nested;
    nested.addItem(code);
    EXPECT_EQ(std::string(there(code).asString().c_str()), "{<NIL>}");
    EXPECT_EQ(std::string(there(nested).asString().c_str()), "{<ITEM:{<NIL>}>}");
    Object function;
    ASSERT_TRUE(code.decodeElementAsSquirrel(0, function, Trust::Code));
    EXPECT_TRUE(function.isClosure());
    EXPECT_EQ(log.take().size(), 0u);

    Item damaged;
    damaged.addPrefix("squirrel");
    damaged.addBuffer(reinterpret_cast<const uint8_t*>("code?"), 5);
    EXPECT_EQ(there(damaged).getPlainSize(), 1u);
    EXPECT_EQ(there(damaged, Trust::Code).getPlainSize(), 1u); // the engine sees that, at least

    vm.getRootTable().set("code", Object::from(kivSq::ItemObject(code)));
    EXPECT_EQ(eval("code.toValue()"), "null");
    EXPECT_EQ(eval("code.toValueWithCode()(4)"), "5");
}

TEST_F(ItemScriptTest, ScriptsHaveItems) {
    vm.executeString("import(\"kiv.Item\")", "t");
    const char* const rows[][2] = {
        {"kiv.Item(\"a\", 1, [2], {}).asString()", "{<STR:a><INT:1><ITEM:{<INT:2>}><PREFIX:table><ITEM:{}>}"},
        {"kiv.Item().add(kiv.Item(1)).asString()", "{<ITEM:{<INT:1>}>}"},
        {"kiv.Item(7).toValue() + 1", "8"},
        {"kiv.Item(7, 8).toValue().len() + kiv.Item().toValue().len()", "2"},
        {"kiv.Item({a = 1}, \"x\")[1]", "x"},
        {"kiv.Item({a = 1})[1]", "error: the index '1' does not exist"},
        {"kiv.Item(1).nope", "error: the index 'nope' does not exist"},
        {"kiv.Item({}, 0.5, \"\\x00\").getType(2)", "buffer"},
        {"kiv.Item(1).getType(1)", "null"},
        {"kiv.Item({a = 1}, \"x\").getItem(0).len()", "1"},
        {"(function() { local sum = 0; foreach (i, v in kiv.Item(3, 4, 5)) sum += i * v; return sum })()", "14"},
        {"kiv.Item(\"a\", 1, \"b\", 2).find(\"b\")", "2"},
        {"kiv.Item(\"a\", 1).find(\"c\")", "null"},
        {"(@(i) (i.setJSON(\"{\\\"a\\\": [1]}\"), i.toValue().a[0]))(kiv.Item())", "1"},
        {"kiv.Item().setJSON(\"{\")", "false"},
        {"(@(i) (i.setBase64crc(kiv.Item(1, 2).getBase64crc()), i.getJSON(false)))(kiv.Item())", "[1,2]"},
        {"kiv.Item(1) < kiv.Item(2)", "true"},
        {"kiv.Item(1, 2).compare(kiv.Item(1))", "1"},
        {"kiv.Item(1).equals(1)", "true"},
        {"(@(i) (i.parent().asString() + i.trail().asString()))(kiv.Item(1, 2))", "{<INT:1>}{<INT:2>}"},
        {"kiv.Item().parent()", "null"},
        {"kiv.Item(1).fetch()", "error: the item is bound to no store"},
        {"(@(a) (@(b) (b.add(1), a.len() * 10 + b.len()))(clone a))(kiv.Item(5))", "12"},
        {"kiv.Item.add.call({}, 1)", "error: native method call on null-pointer"},
        {"kiv.Item.toArray.call(kiv.GUID())", "error: native method call on null-pointer"},
        {"typeof kiv.Item.constructor.call({})", "error: native constructor called on an object of another class"},
    };
    for (const auto& [expression, value] : rows) EXPECT_EQ(eval(expression), value) << expression;
}

TEST_F(ItemScriptTest, IdentifiersAreValues) {
    kiv::SeededRandom random(1);
    const GUID guid(1, 2, 3, 4);
    vm.getRootTable().set("g", Object::from(guid)); // not imported by anybody
    const std::string text = guid.toString().c_str();
    vm.executeString("import(\"kiv.GUID\"); import(\"kiv.Item\")", "t");
    EXPECT_EQ(eval("g.toString()"), text);
    EXPECT_EQ(eval("g.tostring()"), text);
    EXPECT_EQ(eval("g.getClassName() + typeof g"), "GUIDGUID");
    EXPECT_EQ(eval("g.equals(kiv.GUID(g.toString())) && (clone g).equals(g) && !g.isNull()"), "true");
    EXPECT_EQ(eval("(g <=> kiv.GUID()) + (kiv.GUID() <=> g) * 10"), "-9");
    EXPECT_EQ(eval("kiv.Item(g)[0].equals(g)"), "true");
    EXPECT_EQ(eval("kiv.GUID().getFantasyName()"), "god");
    EXPECT_EQ(eval("kiv.GUID.create().equals(kiv.GUID.create())"), "false");
    EXPECT_EQ(eval("kiv.GUID(\"12\")"), "error: a GUID has 64 hexadecimal digits");
    EXPECT_EQ(eval("g.equals(1)"), "error: argument 1: expected GUID, got integer");
    GUID back;
    EXPECT_TRUE(vm.getRootTable().get("g").to(back) && back == guid);
    EXPECT_FALSE(Object::from(1).to(back));
}

} // namespace
