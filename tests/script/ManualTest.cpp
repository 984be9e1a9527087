#include "kiv/core/Clock.h"
#include "kiv/data/PacketScheme.h"
#include "kiv/script/NativeTable.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

// Runs the examples of the manual: the blocks marked "```squirrel". Each is compiled as a whole, so that its functions
// and locals go on from line to line, with every marked line wrapped into a call that reports what has become of it.

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

// ---- Values as scripts write them.

std::string textOf(const kivSq::Object& value);

std::string textOfArray(const kivSq::Object& array) {
    std::string out;
    for (const kivSq::Object& element : array.asArray().getValues()) out += (out.empty() ? "" : ", ") + textOf(element);
    return '[' + out + ']';
}

std::string textOfTable(const kivSq::Object& table) {
    std::map<std::string, std::string> slots;
    for (const auto& [key, value] : table.asTable().getKeyValuePairs())
        slots[key.isString() ? std::string(key.describe()) : '[' + textOf(key) + ']'] = textOf(value);
    std::string out;
    for (const auto& [key, value] : slots) out += (out.empty() ? "" : ", ") + key + " = " + value;
    return '{' + out + '}';
}

std::string textOf(const kivSq::Object& value) {
    if (value.isNull()) return "null";
    if (value.isArray()) return textOfArray(value);
    if (value.isTable()) return textOfTable(value);
    SQVM* const v = kivSq::VM::current()->getSquirrelVM();
    const kivSq::StackGuard guard(v);
    value.push(v);
    if (value.isFloat()) return nlohmann::json(sq_objtofloat(&value.getHandle())).dump();
    if (!value.isString()) sq_tostring(v, -1);
    std::string_view text;
    kivSq::Access<std::string_view>::get(v, -1, text);
    return value.isString() ? nlohmann::json(text).dump() : std::string(text);
}

// ---- Marked lines.

struct Example {
    std::string expected;
    Lines seen; // each time the line has run
};

// What runs now.
struct Run {
    std::map<int, Example> examples; // by line number
    support::LogLines log;
};
Run* g_run = nullptr;

void reportValue(int line, const kivSq::Object& value) {
    g_run->examples[line].seen.push_back("-> " + textOf(value));
}
void reportError(int line, const std::string& text) {
    g_run->examples[line].seen.push_back("error: " + text);
}
void reportLog(int line) {
    std::string all;
    for (const std::string& text : g_run->log.take())
        if (!text.empty()) all += (all.empty() ? "" : " | ") + text;
    g_run->examples[line].seen.push_back("log: " + all);
}

// They are script functions, so that what they call can suspend its script thread.
constexpr const char* helpers = R"(
function __value(line, f) { try { __reportValue(line, f()) } catch (e) { __reportError(line, "" + e) } }
function __error(line, f) { try { f(); __reportValue(line, null) } catch (e) { __reportError(line, "" + e) } }
function __log(line, f) { try { __takeLog(); f(); __reportLog(line) } catch (e) { __reportError(line, "" + e) } }
)";

// What the brackets and the comment of a line are, those in texts left out.
struct Code {
    explicit Code(std::string_view line) : comment(line.size()) {
        char quote = 0;
        for (size_t i = 0; i < line.size(); ++i) {
            const char c = line[i];
            if (quote) {
                if (c == '\\') ++i;
                if (c == quote) quote = 0;
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (line.substr(i, 2) == "//") {
                comment = i;
                return;
            } else {
                open += std::string_view("([{").find(c) != std::string_view::npos;
                open -= std::string_view(")]}").find(c) != std::string_view::npos;
            }
        }
    }

    size_t comment; // where it begins
    int open = 0;   // opening brackets minus closing ones
};

struct Mark {
    std::string_view text;
    const char* function;
    const char* begin;
    const char* end;
};
constexpr Mark marks[] = {{"// -> ", "__value", "return (", ") });"},
                          {"// error: ", "__error", "", "; });"},
                          {"// log: ", "__log", "", "; });"}};

// Wraps the marked lines; a statement whose brackets open on an earlier line begins there.
std::map<int, Example> wrapMarks(Lines& block, int firstLine) {
    std::map<int, Example> examples;
    for (size_t i = 0; i < block.size(); ++i) {
        const Code code(block[i]);
        const std::string comment = block[i].substr(code.comment);
        for (const Mark& mark : marks) {
            if (!comment.starts_with(mark.text)) continue;
            const int line = firstLine + static_cast<int>(i);
            examples[line].expected = comment.substr(3);
            block[i].resize(code.comment);
            block[i].resize(block[i].find_last_not_of("; ") + 1);
            size_t start = i;
            for (int open = code.open; open < 0 && start > 0;) open += Code(block[--start]).open;
            block[i] += mark.end;
            block[start].insert(0, mark.function + ("(" + std::to_string(line)) + ", function() { " + mark.begin);
        }
    }
    return examples;
}

std::string at(int line) {
    return std::to_string(line) + ": ";
}

struct Manual {
    Lines problems;
    size_t examples = 0;
};

// Runs a closure and the threads it makes until all of them have ended; time goes on by a millisecond a pass.
bool runInThread(kivSq::VM& vm, const kivSq::Object& closure) {
    if (!closure) return false;
    bool isGood = false;
    vm.createThread(closure, [&isGood](const kivSq::Object&, bool hasEnded) { isGood = hasEnded; });
    kiv::ManualClock clock;
    for (int pass = 0; vm.threadsActive() && pass < 100'000; ++pass) {
        vm.processEvents();
        clock.advance(1);
    }
    return isGood && !vm.threadsActive();
}

// The application's, in examples.
struct PictureScheme : kiv::PacketScheme {
    PictureScheme() : PacketScheme(4041, "Camera", "Picture", nullptr) {
        Number<uint16_t>("width");
        Numbers<int16_t>("origin", 2);
        String("name", 20);
        Item("meta", UpTo(1000));
    }
};

// Runs a block in a VM of its own.
void runBlock(Lines block, int firstLine, Manual& manual) {
    Run run;
    g_run = &run;
    run.examples = wrapMarks(block, firstLine);
    std::string source(static_cast<size_t>(firstLine - 1), '\n');
    for (const std::string& line : block) source += line + '\n';

    const PictureScheme scheme;
    kivSq::VM vm;
    kivSq::internal::NativeTable(vm.getSquirrelVM(), vm.getRootTable())
        .carried("__reportValue", &reportValue)
        .carried("__reportError", &reportError)
        .carried("__reportLog", &reportLog)
        .carried(
            "__takeLog", +[] { g_run->log.take(); });
    vm.executeString(helpers, "helpers");
    run.log.take();

    if (!runInThread(vm, vm.newClosure(source.c_str(), static_cast<unsigned>(source.size()), "manual")))
        manual.problems.push_back(at(firstLine) + "the block fails: " + run.log.takeOne());
    for (const auto& [line, example] : run.examples) {
        if (example.seen.empty()) manual.problems.push_back(at(line) + "does not run");
        for (const std::string& seen : example.seen)
            if (seen != example.expected)
                manual.problems.push_back(at(line) + "says " + example.expected + ", but is " + seen);
    }
    manual.examples += run.examples.size();
}

// Runs every block in a folder of its own.
Manual runManual(std::istream& text) {
    Manual manual;
    Lines block;
    int number = 0;
    int firstLine = 0; // of the block; 0 outside
    for (std::string line; std::getline(text, line);) {
        ++number;
        if (line.ends_with('\r')) line.pop_back();
        if (firstLine == 0) {
            if (line == "```squirrel") firstLine = number + 1;
        } else if (line != "```") {
            block.push_back(line);
        } else {
            const support::TemporaryFolder folder;
            const auto before = std::filesystem::current_path();
            std::filesystem::current_path(folder.path(""));
            runBlock(std::exchange(block, {}), std::exchange(firstLine, 0), manual);
            std::filesystem::current_path(before);
        }
    }
    if (firstLine != 0) manual.problems.push_back(at(firstLine) + "the block does not end");
    return manual;
}

TEST(ManualTest, ExamplesAreRight) {
    std::ifstream file(KIV_TEST_MANUAL, std::ios::binary);
    ASSERT_TRUE(file) << KIV_TEST_MANUAL;
    const Manual manual = runManual(file);
    for (const std::string& problem : manual.problems) ADD_FAILURE() << "doc/scripting.md:" << problem;
    EXPECT_GE(manual.examples, 45U);
}

TEST(ManualTest, WrongExamplesAreFound) {
    std::istringstream text(R"(```squirrel
local sum = 1 // a comment
function add(n) {
    sum += n
    return [sum, {b = 0.5, a = "x // -> \"y\""}] // no mark
}
add(2) // -> [3, {a = "x // -> \"y\"", b = 0.5}]
add(sum)[0] // -> 5
add(function() {
    return 4
}()
)[0]; // -> 10
throw "no" // error: no
1 + 1 // error: none
nope() // -> 1
print("a\nb") // log: a
if (false)
    1 // -> 1
local isAwake = false
std.async(function() {
    std.sleep(3)
    isAwake = true
})
std.sleep(9) // -> null
isAwake // -> true
```
```squirrel
local x = 1

x.y()
```
```
1 // -> 2
```
```squirrel
)");
    const Manual manual = runManual(text);
    EXPECT_EQ(manual.examples, 10U);
    EXPECT_THAT(manual.problems,
                ElementsAre("8: says -> 5, but is -> 6", "14: says error: none, but is -> null",
                            "15: says -> 1, but is error: the index 'nope' does not exist",
                            "16: says log: a, but is log: a | b", "18: does not run",
                            HasSubstr("28: the block fails: [SQ.INTERPRETER] the index 'y' does not exist AND"),
                            "36: the block does not end"));
}

} // namespace
