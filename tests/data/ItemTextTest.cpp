// Hunts: texts that differ from the fixed forms, decoders that take what no encoder writes or change the item when they
// fail, and values that do not survive JSON.
#include "kiv/data/Item.h"
#include "tests/data/Items.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using kiv::GUID;
using kiv::Item;
using kiv::String;
using support::list;
using support::plain;

Item everything() {
    const uint8_t bytes[] = {1, 2, 3};
    Item item = list(-5, 0.1, "text", list(1, "x"), GUID(1, 0, 0, 0));
    item.addPrefix("p");
    item.addBuffer(bytes, 3);
    item.addNIL();
    item.addTrue();
    item.addFalse();
    item.concatItem(plain("\xC0\xFF"));
    return item;
}

TEST(ItemText, DebugTextShowsEveryElement) {
    const std::string guid = "01" + std::string(62, '0');
    EXPECT_EQ(everything().asString(), "{<INT:-5><FLT:0.1><STR:text><ITEM:{<INT:1><STR:x>}><GUID:" + guid +
                                           "><PREFIX:p><BUF:3><NIL><BOOL:TRUE><BOOL:FALSE><META><END>}");
    EXPECT_EQ(Item().asString(), "{}");
    EXPECT_EQ(Item(1234567.0).asString(), "{<FLT:1.23457e+06>}");
    EXPECT_EQ(Item(1.0).asString(), "{<FLT:1>}");
    EXPECT_EQ(Item(-INFINITY).asString(), "{<FLT:-inf>}");
    Item trail = list(1);
    trail.addWildcard();
    trail.add(2);
    EXPECT_EQ(trail.asString(), "{<INT:1><TRAIL:3>}");
}

TEST(ItemText, PathTextSeparatesTheElements) {
    EXPECT_EQ(everything().asBrowsableString(), "INT:-5;FLT:0.1;text;ITEM:{INT:1;x};GUID:01" + std::string(62, '0') +
                                                    ";PREFIX:p;BUF:3;NIL;BOOL:TRUE;BOOL:FALSE;META;END");
    EXPECT_EQ(Item().asBrowsableString(), "");
    EXPECT_EQ(list(1, plain("\x08")).asBrowsableString(), "INT:1;ITEM:{TRAIL:1}");
}

TEST(ItemText, NestingPastTheLimitIsATrail) {
    Item item;
    for (int i = 0; i < 130; ++i) {
        Item outer;
        outer.addItem(item);
        item = outer;
    }
    EXPECT_NE(item.asString().find("{<TRAIL:10>}"), String::npos);
    EXPECT_NE(item.getJSON(false).find("[null]"), String::npos);
    EXPECT_EQ(item.getJSON(false).size(), 128 * 2 + 4u);
}

TEST(ItemText, EncodedTextsRoundTrip) {
    for (const Item& item : {Item(), Item(1), everything(), list(std::string(1000, 'z'))}) {
        Item back;
        EXPECT_TRUE(back.setBase16(item.getBase16()));
        EXPECT_EQ(back.getBase16(), item.getBase16());
        EXPECT_TRUE(back.setBase64(item.getBase64()));
        EXPECT_EQ(back.getBase16(), item.getBase16());
        EXPECT_TRUE(back.setBase64crc(item.getBase64crc()));
        EXPECT_EQ(back.getBase16(), item.getBase16());
    }
    EXPECT_EQ(Item(1).getBase64(), "CAE");
    EXPECT_EQ(Item().getBase64crc(), "____") << "the complement of no bytes' sum";
}

TEST(ItemText, AFailedSetterSaysWhereAndLeavesTheItem) {
    auto refused = [](auto setter, const char* text, size_t offset) {
        Item item = list("kept");
        Item::TextError error;
        EXPECT_FALSE((item.*setter)(text, &error)) << text;
        EXPECT_FALSE((item.*setter)(text, nullptr)) << text;
        EXPECT_EQ(error.offset, offset) << text << ": " << error.reason;
        EXPECT_STRNE(error.reason, "");
        EXPECT_EQ(item, list("kept"));
    };
    refused(&Item::setBase16, "080G", 3);
    refused(&Item::setBase16, "08 1", 2);
    refused(&Item::setBase64, "CA=", 2);
    refused(&Item::setBase64, "CAF", 2);
    refused(&Item::setBase64crc, "___", 2);
    refused(&Item::setBase64crc, "A___", 0);
    String damaged = everything().getBase64crc();
    damaged[0] = damaged[0] == 'A' ? 'B' : 'A';
    refused(&Item::setBase64crc, damaged, 0);
    refused(&Item::setJSON, "[1, 2", 5);
    refused(&Item::setJSON, "[1, x]", 4);
    refused(&Item::setJSON, "1 2", 2);
    refused(&Item::setJSON, "1e999", 4);
    refused(&Item::setJSON, "[\"a\\u0000\"]", 9);
    refused(&Item::setJSON, "", 0);
    refused(&Item::setJSON, (std::string(129, '[') + std::string(129, ']')).c_str(), 128);
}

TEST(ItemJSON, SingleValuesSurviveExactly) {
    const uint8_t bytes[] = {0xDE, 0xAD};
    Item buffer, pointer, referee, prefix, closure;
    buffer.addBuffer(bytes, 2);
    pointer.addPointer(bytes, 2);
    referee.addReferee(bytes, 2);
    prefix.addPrefix("p");
    closure.addPrefix("squirrel");
    closure.addBuffer(bytes, 2);
    auto tableOf = [](const Item& pairs) {
        Item item;
        item.addPrefix("table");
        item.addItem(pairs);
        return item;
    };
    Item pairs = list("a", 1, "b", list(2.5, Item(Item::NILType())), "c");
    pairs.concatItem(closure);
    pairs.add("d");
    pairs.concatItem(tableOf(list("x", true)));
    auto same = [](const Item& item, const char* json) {
        const String text = item.getJSON(false);
        if (json) {
            EXPECT_EQ(text, json);
        }
        for (const String& form : {text, item.getJSON(true)}) {
            Item back;
            EXPECT_TRUE(back.setJSON(form)) << form;
            EXPECT_EQ(back.getBase16(), item.getBase16()) << form;
        }
    };
    same(Item(Item::NILType()), "null");
    same(true, "true");
    same(-42, "-42");
    same(1.0, "1.0");
    same(-0.0, "-0.0");
    same(0.1, "0.1");
    same(9223372036854775807ll, "9223372036854775807");
    same("t\"\n\xC3\xA9", "\"t\\\"\\n\xC3\xA9\"");
    same(list(list()), "[]");
    same(list(list(1, list("x"))), "[1,[\"x\"]]");
    same(buffer, "{\"$buffer\":\"3q0\"}");
    same(pointer, "{\"$pointer\":\"3q0\"}");
    same(referee, "{\"$referee\":\"3q0\"}");
    same(prefix, "{\"$prefix\":\"p\"}");
    same(INFINITY, "{\"$float\":\"inf\"}");
    same(-INFINITY, "{\"$float\":\"-inf\"}");
    same(GUID(1, 0, 0, 0), nullptr);
    same(plain("\xC0"), "{\"$mark\":\"meta\"}");
    same(plain("\xFE"), "{\"$mark\":\"wildcard\"}");
    same(plain("\xFF"), "{\"$mark\":\"end\"}");
    same(tableOf(Item()), "{}");
    same(tableOf(list("a", 1, "b", "x")), "{\"a\":1,\"b\":\"x\"}");
    same(tableOf(pairs), nullptr);
    same(closure, nullptr);
    same(tableOf(list("a", 1, "a", 2)), nullptr); // an object says a name once
    same(tableOf(list("a")), nullptr);            // no value
    same(tableOf(list("$guid", "x")), nullptr);   // would be read as something else
    same(tableOf(list(1, 2)), nullptr);           // no names
    same(tableOf(list("a", prefix)), nullptr);
    same(list(plain("\x08")), nullptr); // a nested item with an undecodable rest
    EXPECT_EQ(Item().getJSON(false), "[]");
    EXPECT_EQ(list(1, 2).getJSON(false), "[1,2]");
    EXPECT_EQ(Item("\xE9").getJSON(false), "\"\xC3\xA9\"") << "broken text is repaired";
    EXPECT_EQ(Item(NAN).getJSON(false), "{\"$float\":\"nan\"}");
}

TEST(ItemJSON, ReadsWhatOthersWrite) {
    auto reads = [](const char* json, const char* again) {
        Item item;
        EXPECT_TRUE(item.setJSON(json)) << json;
        EXPECT_EQ(item.getJSON(false), again);
    };
    reads(" { \"b\" : 1 , \"a\" : [ ] } ", "{\"b\":1,\"a\":[]}");
    reads("{\"a\":1,\"b\":2,\"a\":3}", "{\"a\":3,\"b\":2}");
    reads("18446744073709551615", "1.8446744073709552e+19");
    reads("\"\\u00e9\\ud83d\\ude00\"", "\"\xC3\xA9\xF0\x9F\x98\x80\"");
    reads("{\"$guid\":\"12\"}", "{\"$guid\":\"12\"}"); // not well-formed: a table
    reads("{\"$float\":1}", "{\"$float\":1}");
    reads("{\"$mark\":\"meta\",\"x\":1}", "{\"$mark\":\"meta\",\"x\":1}");
    Item item;
    EXPECT_TRUE(item.setJSON("{\"a\":[1,{\"b\":null}]}"));
    EXPECT_EQ(item.getJSON(true),
              "{\n    \"a\": [\n        1,\n        {\n            \"b\": null\n        }\n    ]\n}");
}

} // namespace
