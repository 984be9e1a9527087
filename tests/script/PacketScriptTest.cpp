#include "ScriptValues.h"
#include "kiv/data/Packet.h"
#include "kiv/script/Access.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace {

struct PictureScheme : kiv::PacketScheme {
    PictureScheme() : PacketScheme(4040, "Camera", "Picture", nullptr) {
        Table();
        Number<uint8_t>("width", 3);
        Number<int64_t>("time");
        Number<double>("gain", 0.5);
        Numbers<int16_t>("origin", 2);
        Numbers<uint16_t>("line", UpTo(3));
        String("name", 6, "none");
        Buffer("pixels", UpTo(4));
        Item("meta", UpTo(40));
    }
};

class PacketScriptTest : public testing::Test, protected ScriptValues {
protected:
    PacketScriptTest() {
        vm.import("kiv.Packet");
        vm.import("kiv.MemoryStore");
        vm.executeString("p <- kiv.Packet(\"Camera::Picture\", 9)\n"
                         "function put(name, value) { p.set(name, value); return p.get(name) }\n"
                         "function sum(list) { local n = 0; foreach (x in list) n += x; return list.len() * 100 + n }",
                         "t");
    }

    const PictureScheme scheme;
};

TEST_F(PacketScriptTest, FieldsAreReachedByName) {
    support::LogLines log;
    const char* const rows[][2] = {
        {"p.get(\"width\") + p.get(\"gain\") + p.get(\"name\")", "3.5none"},
        {"put(\"width\", 255)", "255"},
        {"put(\"time\", -9223372036854775807)", "-9223372036854775807"},
        {"put(\"gain\", 0.1) == 0.1", "true"},
        {"sum(put(\"origin\", [-1, 7]))", "206"},
        {"sum(put(\"line\", [1, 2, 3])) + sum(put(\"line\", []))", "306"},
        {"put(\"name\", \"abcde\")", "abcde"},
        {"put(\"pixels\", \"a\\x00b\").len()", "3"},
        {"put(\"meta\", kiv.Item(1, 2))[1]", "2"},
        {"put(\"meta\", {a = [1, 2]}).a[1]", "2"},
        {"(@(g) put(\"id\", g).equals(g))(kiv.GUID.create())", "true"},
        {"p.getSchemeName() + p.id + p.port + p.getFieldNames().len() + p.getClassName()",
         "Camera::Picture404099Packet"},
        {"p.copy().toTable().origin[1]", "7"},
        {"(@(q) (q.fromTable(p.toTable()), q.toBase16() == p.toBase16()))(kiv.Packet(\"Camera::Picture\", 9))", "true"},
    };
    for (const auto& [expression, value] : rows) EXPECT_EQ(eval(expression), value) << expression;
    EXPECT_TRUE(log.take().empty());
}

TEST_F(PacketScriptTest, WhatDoesNotFitIsAScriptErrorAndChangesNothing) {
    support::LogLines log;
    const char* const rows[][2] = {
        {"kiv.Packet(\"Nope\")", "error: there is no packet scheme Nope"},
        {"p.get(\"nope\")", "error: Camera::Picture has no field 'nope'"},
        {"p.get(1)", "error: a field's name is a string, not integer"},
        {"p.set(\"width\")", "error: invalid argument count on native method call"},
        {"p.set(\"width\", 256)", "error: field 'width' of Camera::Picture: expected 8-bit integer, got integer"},
        {"p.set(\"width\", \"1\")", "error: field 'width' of Camera::Picture: expected 8-bit integer, got string"},
        {"p.set(\"gain\", {})", "error: field 'gain' of Camera::Picture: expected float, got table"},
        {"p.set(\"origin\", [1])", "error: field 'origin' of Camera::Picture: 1 values, and it has 2"},
        {"p.set(\"origin\", [1, \"x\"])",
         "error: field 'origin' of Camera::Picture: expected 16-bit integer, got string"},
        {"p.set(\"line\", [1, 2, 3, 4])", "error: field 'line' of Camera::Picture: 4 values, and it has at most 3"},
        {"p.set(\"line\", 1)", "error: field 'line' of Camera::Picture: expected array, got integer"},
        {"p.set(\"name\", \"abcdef\")", "error: field 'name' of Camera::Picture: 7 bytes, and it has 6"},
        {"p.set(\"name\", \"a\\x00\")", "error: field 'name' of Camera::Picture: a zero byte in a text"},
        {"p.set(\"pixels\", \"abcde\")", "error: field 'pixels' of Camera::Picture: 5 bytes, and it has 4"},
        {"p.set(\"meta\", \"long text, much longer than there is room for it\")",
         "error: field 'meta' of Camera::Picture: 50 bytes, and it has 40"},
        {"p.set(\"id\", 7)", "error: field 'id' of Camera::Picture: expected GUID, got integer"},
        {"p.fromTable({gain = 5.0, nope = 1})", "error: Camera::Picture has no field 'nope'"},
        {"p.get.call(kiv.GUID(), \"width\")", "error: native method call on null-pointer"},
        {"kiv.Packet.fromBase16(p.toBase16()).get(\"width\")", "error: the packet is raw: fit() gives it its scheme"},
        {"sum(p.get(\"origin\")) + p.get(\"gain\") + sum(p.get(\"line\"))", "200.5"},
    };
    for (const auto& [expression, value] : rows) EXPECT_EQ(eval(expression), value) << expression;
    EXPECT_TRUE(log.take().empty());
}

TEST_F(PacketScriptTest, PacketsGoThroughStoresAndFiles) {
    const support::TemporaryFolder folder;
    vm.getRootTable().set("path", kivSq::Object::from(folder.utf8("packets")));
    ASSERT_TRUE(vm.executeString(R"(
        s <- kiv.MemoryStore()
        p.set("width", 77)
        p.storeIn(s, ["pictures", 1])
        local writer = kiv.FilePacketWriter(path)
        writer.write(p)
        writer.write(p)
        writer.close()
        count <- 0
        local reader = kiv.FilePacketReader(path), packet
        while (packet = reader.read()) count += packet.get("width")
        reader.close())",
                                 "t"));
    EXPECT_EQ(eval("count"), "154");
    EXPECT_EQ(eval("kiv.Packet.fetchFrom(s, [\"pictures\", 1], \"Camera::Picture\").get(\"width\")"), "77");
    EXPECT_EQ(eval("kiv.Packet.fetchFrom(s, 5, \"Camera::Picture\")"), "null");
    EXPECT_EQ(eval("(@(q) (q.fit(\"Camera::Picture\"), q.get(\"width\")))(kiv.Packet.fromBase16(p.toBase16()))"), "77");
    support::LogLines log;
    EXPECT_EQ(eval("kiv.FilePacketReader(path + \"/x\")").substr(0, 18), "error: cannot open");
    EXPECT_EQ(eval("kiv.Packet.fromBase16(\"x\")"), "null");
}

} // namespace
