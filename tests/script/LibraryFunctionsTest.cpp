#include "kiv/core/Clock.h"
#include "kiv/core/Object.h"
#include "kiv/core/Translation.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/script/Access.h"
#include "tests/logging/BackendScope.h"
#include "tests/script/ScriptValues.h"
#include "tests/support/OutputCapture.h"

#include <gmock/gmock.h>

// What the examples of the manual (see ManualTest.cpp) leave out: hostile values, and effects outside of scripts.

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class LibraryFunctionsTest : public testing::Test, protected ScriptValues {
protected:
    // The value of an expression as a text.
    std::string eval(const std::string& expression) {
        std::string text = "no text";
        valueOf("(" + expression + ") + \"\"").to(text);
        return text;
    }
    std::string logged(const std::string& call) {
        console.take();
        vm.executeString(call.c_str(), "test");
        return console.take();
    }

    support::OutputCapture console;
    kiv::ManualClock clock{1000, 1700000000000000};
    kiv::logging::BackendScope backend{false};
};

TEST_F(LibraryFunctionsTest, LogsWithLevelAndAudience) {
    // The console tells the audience by the brackets of the time.
    const std::pair<const char*, const char*> rows[] = {
        {"verbose", "[ [VERBOSE] x\n"},      {"info", "[ x\n"},          {"warn", "[ [WARNING] x\n"},
        {"error", "[ [ERROR] x\n"},          {"info_customer", "< x\n"}, {"warn_customer", "< [WARNING] x\n"},
        {"error_customer", "< [ERROR] x\n"},
    };
    for (const auto& [name, expected] : rows) {
        std::string line = logged(std::string("std.") + name + "(\"x\")");
        line.erase(1, line.find_first_of("]>"));
        EXPECT_EQ(line, expected) << name;
    }
    EXPECT_THAT(logged("std.info(\"a\\x00b\")"), EndsWith(std::string("] a\0b\n", 6)));
    EXPECT_THAT(logged("std.info(null); std.info([])"), HasSubstr("(null : "));
    EXPECT_EQ(eval("std.info(class { function _tostring() { throw \"no text\" } }())"), "error: no text");
    EXPECT_THAT(logged("function f(a) { std.dbg_showcontext() } f(\"here\")"),
                HasSubstr("CALLSTACK:\n* f() [test:1]\n   a=here\n"));
}

TEST_F(LibraryFunctionsTest, SupportLinesReachTheSupportChannel) {
    std::string received;
    const kiv::Connection connection =
        kiv::logging::LogBackend::getSignalNewSupportMessage().connect([&](const char* text) { received += text; });
    vm.executeString("std.support(\"disk full\"); std.info(\"[SUPPORT] no\")", "test");
    clock.advance(3600001);
    kiv::logging::LogBackend::processSupportMessages();
    EXPECT_EQ(received, "2023-11-14T22:13:20.000Z [SUPPORT] [SQ] disk full\n");
}

TEST_F(LibraryFunctionsTest, AsksTheTranslationSource) {
    kiv::setTranslationSource([](const char* context, const char* text, std::string& translation) {
        translation = std::string(context) + '/' + text + "!";
        return *text == 'O';
    });
    EXPECT_EQ(eval("std.tr(\"Open\")"), "/Open!");
    EXPECT_EQ(eval("std.tr(\"menu\", \"Open\")"), "menu/Open!");
    EXPECT_EQ(eval("std.tr_l(\"menu\", \"Open\", \"?\") + std.tr_l(\"menu\", \"Close\", \"?\")"), "menu/Open!?");
    EXPECT_EQ(eval("std.tr_l(\"menu\", \"Close\")"), "Close");
    kiv::setTranslationSource({});
    kiv::Object::clearTrCache();
}

TEST_F(LibraryFunctionsTest, SomeClosuresCarryTheirFunction) {
    std::vector<std::string> carried;
    SQVM* const v = vm.getSquirrelVM();
    for (const char* table : {"std", "string"})
        for (const auto& [name, function] : vm.getRootTable().get(table).asTable().getKeyValuePairs()) {
            const kivSq::StackGuard guard(v);
            function.push(v);
            if (function.isNativeClosure() && sq_getfreevariable(v, -1, 0)) carried.emplace_back(name.describe());
            sq_reseterror(v);
        }
    EXPECT_THAT(carried, testing::UnorderedElementsAre("queue", "tr", "tr_l", "current_queue_is_aborting",
                                                       "decode_json", "replace_all", "append_to_file", "write_to_file",
                                                       "read_from_file", "dofile", "loadfile", "format",
                                                       "escape")); // the last four: what they guard
}

TEST_F(LibraryFunctionsTest, MisuseIsAScriptError) {
    const char* const calls[] = {
        "std.tr(1)",
        "std.tr_l(\"a\")",
        "std.tr(\"a\", \"b\", \"c\")",
        "std.info()",
        "std.encode_json()",
        "std.decode_json()",
        "std.decode_json([])",
        "std.dbg_showcontext(1)",
        "string.contains([])",
        "string.replace_all(1)",
        "string.read_from_file()",
        "string.read_from_file({})",
        "string.trim_spaces(\"a\", \"b\")",
        "string.utf8_lowercase(null)",
        "string.write_to_file(\"a\")",
        "string.append_to_file(1, \"a\")",
        "string.utf8_escape_filepath(string)",
    };
    for (int round = 0; round < 4; ++round)
        for (const char* call : calls) EXPECT_THAT(eval(call), HasSubstr("error: ")) << call;
    EXPECT_EQ(eval("string.write_to_file(\"a\\x00b\", \"\") || string.append_to_file(\"a\\x00b\", \"\")"), "false");
    EXPECT_EQ(eval("string.contains(\"a\\x00b\", \"\\x00b\")"), "true");
    EXPECT_EQ(eval("string.replace_all(\"a\\x00b\", \"\\x00\", \"-\")"), "a-b");
}

TEST_F(LibraryFunctionsTest, JSONSurvivesHostileTexts) {
    const std::pair<const char*, const char*> rows[] = {
        {R"("")", "not JSON at byte 0"},
        {R"("[1] 2")", "not JSON at byte 4"},
        {R"("\"\xff\"")", "not JSON at byte 1"},
        {R"("\"a\x00\"")", "not JSON at byte 2"},
        {R"(::nest(10000, "[", "]"))", "nested deeper than 128 levels at byte 128"},
        {R"(::nest(129, "{\"a\":", "}") )", "nested deeper than 128 levels at byte 640"},
    };
    vm.executeString(R"(function nest(n, a, b) {
        local left = "", right = ""
        for (local i = 0; i < n; i++) { left += a; right += b }
        return left + 1 + right
    })",
                     "test");
    for (const auto& [text, reason] : rows)
        EXPECT_THAT(eval(std::string("std.decode_json(") + text + ")"),
                    HasSubstr(std::string("error: invalid json: ") + reason))
            << text;
    EXPECT_EQ(eval(R"(std.encode_json(std.decode_json(::nest(128, "[", "]"))) == ::nest(128, "[", "]"))"), "true");
    EXPECT_EQ(eval(R"(std.encode_json(std.decode_json("{\"a\\u0000b\": \"\\u0000\", \"\": -0.0}")))"),
              R"({"":-0.0,"a\u0000b":"\u0000"})");
    EXPECT_EQ(eval("std.decode_json(\"-9223372036854775808\") == -9223372036854775807 - 1"), "true");
    EXPECT_EQ(eval("typeof std.decode_json(\"18446744073709551615\")"), "float");
}

TEST_F(LibraryFunctionsTest, JSONRefusesHostileValues) {
    vm.executeString(R"(deep <- 0; for (local i = 0; i < 10000; i++) deep = i % 2 ? {a = deep} : [deep]
        wide <- "0123456789abcdef"; for (local i = 0; i < 14; i++) wide += wide
        for (local i = 0; i < 40; i++) wide = [wide, wide])",
                     "test");
    const std::pair<const char*, const char*> rows[] = {
        {"deep", "is nested deeper than 128 levels"},
        {"wide", "makes it longer than 64 MiB"},
        {"{a = [{b = class {}}]}", "no json: value.a[0].b is of type class"},
        {"{[\"\\xE4\"] = 1, [\"ä\"] = 2}", "no json: value.ä occurs twice"},
        {"[{[1] = 1, [\"1\"] = 2}]", "no json: value[0].1 occurs twice"},
        {"@() 1", "no json: value is of type function"},
        {"class {}()", "no json: value is of type instance"},
    };
    for (const auto& [value, reason] : rows)
        EXPECT_THAT(eval(std::string("std.encode_json(") + value + ")"), HasSubstr(reason)) << value;
    EXPECT_EQ(eval("std.encode_json([\"a\\xff\\x00\\xe4\"])"), R"(["aÿ\u0000ä"])");
    EXPECT_EQ(eval("(@(t) std.encode_json([t, t]))({a = 1}.setdelegate({function _get(k) { throw k } }))"),
              R"([{"a":1},{"a":1}])");
}

} // namespace
