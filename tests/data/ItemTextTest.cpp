// Hunts: texts that differ from the fixed forms, decoders that take what no encoder writes or change the item when they
// fail, and values that do not survive JSON.
#include "kiv/data/Item.h"
#include "tests/data/Items.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using namespace kiv;
using namespace support;

const uint8_t bytes[] = {0xDE, 0xAD};

Item everything() {
    return joined(list(-5, 0.1, "text", list(1, "x"), GUID(1, 0, 0, 0)), prefix("p"), Item(bytes, 2),
                  Item(Item::NILType()), list(true, false), plain("\xC0\xFF"));
}

TEST(ItemText, DebugAndPathTextShowEveryElement) {
    const std::string guid = "01" + std::string(62, '0');
    EXPECT_EQ(everything().asString(), "{<INT:-5><FLT:0.1><STR:text><ITEM:{<INT:1><STR:x>}><GUID:" + guid +
                                           "><PREFIX:p><BUF:2><NIL><BOOL:TRUE><BOOL:FALSE><META><END>}");
    EXPECT_EQ(everything().asBrowsableString(),
              "INT:-5;FLT:0.1;text;ITEM:{INT:1;x};GUID:" + guid + ";PREFIX:p;BUF:2;NIL;BOOL:TRUE;BOOL:FALSE;META;END");
    const auto is = [](const Item& item, const char* text) { EXPECT_EQ(item.asString(), text); };
    is(Item(), "{}"), is(1234567.0, "{<FLT:1.23457e+06>}"), is(1.0, "{<FLT:1>}"), is(-INFINITY, "{<FLT:-inf>}");
    is(joined(list(1), plain("\xFE"), list(2)), "{<INT:1><TRAIL:3>}");
    EXPECT_EQ(Item().asBrowsableString(), "");
    EXPECT_EQ(list(1, plain("\x08")).asBrowsableString(), "INT:1;ITEM:{TRAIL:1}");
}

TEST(ItemText, NestingPastTheLimitIsATrail) {
    EXPECT_TRUE(nested(130).asString().contains("{<TRAIL:10>}") && nested(130).getJSON(false).contains("[null]"));
    EXPECT_EQ(nested(130).getJSON(false).size(), 128 * 2 + 4u);
}

TEST(ItemText, EncodedTextsRoundTrip) {
    for (const Item& item : {Item(), Item(1), everything(), list(std::string(1000, 'z'))}) {
        Item back16, back64, backCrc;
        EXPECT_TRUE(back16.setBase16(item.getBase16()) && back64.setBase64(item.getBase64()));
        EXPECT_TRUE(backCrc.setBase64crc(item.getBase64crc()));
        for (const Item& back : {back16, back64, backCrc}) EXPECT_EQ(back.getBase16(), item.getBase16());
    }
    EXPECT_EQ(Item(1).getBase64(), "CAE");
    EXPECT_EQ(Item().getBase64crc(), "____") << "the complement of no bytes' sum";
}

TEST(ItemText, AFailedSetterSaysWhereAndLeavesTheItem) {
    auto refused = [](auto setter, const String& text, size_t offset) {
        Item item = list("kept");
        Item::TextError error;
        EXPECT_FALSE((item.*setter)(text, &error) || (item.*setter)(text, nullptr)) << text;
        EXPECT_EQ(error.offset, offset) << text << ": " << error.reason;
        EXPECT_STRNE(error.reason, "");
        EXPECT_EQ(item, list("kept"));
    };
    refused(&Item::setBase16, "080G", 3), refused(&Item::setBase16, "08 1", 2);
    refused(&Item::setBase64, "CA=", 2), refused(&Item::setBase64, "CAF", 2);
    refused(&Item::setBase64crc, "___", 2), refused(&Item::setBase64crc, "A___", 0);
    String damaged = everything().getBase64crc();
    damaged[0] = damaged[0] == 'A' ? 'B' : 'A';
    refused(&Item::setBase64crc, damaged, 0);
    refused(&Item::setJSON, "[1, 2", 5), refused(&Item::setJSON, "[1, x]", 4), refused(&Item::setJSON, "1 2", 2);
    refused(&Item::setJSON, "1e999", 4), refused(&Item::setJSON, "[\"a\\u0000\"]", 9), refused(&Item::setJSON, "", 0);
    refused(&Item::setJSON, std::string(129, '[') + std::string(129, ']'), 128);
}

TEST(ItemJSON, SingleValuesSurviveExactly) {
    auto same = [](const Item& item, const char* json = nullptr) {
        const String text = item.getJSON(false);
        EXPECT_EQ(text, json ? json : text.c_str());
        for (const String& form : {text, item.getJSON(true)}) {
            Item back;
            EXPECT_TRUE(back.setJSON(form)) << form;
            EXPECT_EQ(back.getBase16(), item.getBase16()) << form;
        }
    };
    same(Item(Item::NILType()), "null"), same(true, "true"), same(-42, "-42"), same(1.0, "1.0"), same(-0.0, "-0.0");
    same(0.1, "0.1"), same(9223372036854775807ll, "9223372036854775807");
    same("t\"\n\xC3\xA9", "\"t\\\"\\n\xC3\xA9\""), same(list(list()), "[]");
    same(list(list(1, list("x"))), "[1,[\"x\"]]"), same(prefix("p"), "{\"$prefix\":\"p\"}");
    same(Item(bytes, 2), "{\"$buffer\":\"3q0\"}");
    same(made([](Item& i) { i.addPointer(bytes, 2); }), "{\"$pointer\":\"3q0\"}");
    same(made([](Item& i) { i.addReferee(bytes, 2); }), "{\"$referee\":\"3q0\"}");
    same(INFINITY, "{\"$float\":\"inf\"}"), same(-INFINITY, "{\"$float\":\"-inf\"}"), same(GUID(1, 0, 0, 0));
    same(plain("\xC0"), "{\"$mark\":\"meta\"}"), same(plain("\xFE"), "{\"$mark\":\"wildcard\"}");
    same(plain("\xFF"), "{\"$mark\":\"end\"}");
    same(table(Item()), "{}"), same(table(list("a", 1, "b", "x")), "{\"a\":1,\"b\":\"x\"}");
    const Item closure = joined(prefix("squirrel"), Item(bytes, 2));
    same(closure);
    same(table(
        joined(list("a", 1, "b", list(2.5, Item(Item::NILType())), "c"), closure, list("d"), table(list("x", true)))));
    same(table(list("a", 1, "a", 2))); // an object says a name once
    same(table(list("a")));            // no value
    same(table(list("$guid", "x")));   // would be read as something else
    same(table(list(1, 2)));           // no names
    same(table(list("a", prefix("p"))));
    same(list(plain("\x08"))); // a nested item with an undecodable rest
    EXPECT_EQ(Item().getJSON(false), "[]");
    EXPECT_EQ(list(1, 2).getJSON(false), "[1,2]");
    EXPECT_EQ(Item("\xE9").getJSON(false), "\"\xC3\xA9\"") << "broken text is repaired";
    EXPECT_EQ(Item(NAN).getJSON(false), "{\"$float\":\"nan\"}");
}

TEST(ItemJSON, ReadsWhatOthersWrite) {
    auto reads = [](const char* json, const char* again, bool isPretty = false) {
        Item item;
        EXPECT_TRUE(item.setJSON(json)) << json;
        EXPECT_EQ(item.getJSON(isPretty), again);
    };
    reads(" { \"b\" : 1 , \"a\" : [ ] } ", "{\"b\":1,\"a\":[]}"),
        reads("{\"a\":1,\"b\":2,\"a\":3}", "{\"a\":3,\"b\":2}");
    reads("18446744073709551615", "1.8446744073709552e+19");
    reads("\"\\u00e9\\ud83d\\ude00\"", "\"\xC3\xA9\xF0\x9F\x98\x80\"");
    for (const char* table : {"{\"$guid\":\"12\"}", "{\"$float\":1}", "{\"$mark\":\"meta\",\"x\":1}"})
        reads(table, table); // not well-formed as anything else
    reads("{\"a\":[1,{\"b\":null}]}",
          "{\n    \"a\": [\n        1,\n        {\n            \"b\": null\n        }\n    ]\n}", true);
}

} // namespace
