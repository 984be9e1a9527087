#include "kiv/core/Clock.h"
#include "kiv/data/PacketScheme.h"
#include "kiv/script/NativeTable.h"
#include "kiv/system/PluginHost.h"
#include "kiv/system/System.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

// Runs the examples of the manual: the blocks marked "```squirrel". Each is compiled as a whole, so that its functions
// and locals go on from line to line, with every marked line wrapped into a call that reports what has become of it.
// Blocks marked "```cpp" are parts of HostingExamples.cpp, and every name that scripts can reach has a place in the
// text and in an example.

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

// Scripts as an application has them, with a System around their VM.
struct Scripts {
    Scripts() : vm((kiv::System::initialize(), *kiv::System::getVM())) {
        kiv::PluginHost::Settings settings;
        settings.options = {{"host:verbose", "1"}};
        host = kiv::makeObject<kiv::PluginHost>(settings);
        EXPECT_TRUE(host->start());
    }
    Scripts(const Scripts&) = delete;
    Scripts& operator=(const Scripts&) = delete;
    ~Scripts() { EXPECT_TRUE(kiv::System::deinitialize()); }

    kivSq::VM& vm;
    kiv::SmartPointer<kiv::PluginHost> host;
};

// Runs a closure and the threads it makes until all of them have ended; time goes on by a millisecond a pass.
bool runInThread(kivSq::VM& vm, const kivSq::Object& closure) {
    if (!closure) return false;
    bool isGood = false;
    vm.createThread(closure, [&isGood](const kivSq::Object&, bool hasEnded) { isGood = hasEnded; });
    kiv::ManualClock clock;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (vm.threadsActive() && std::chrono::steady_clock::now() < end) {
        kiv::System::processEvents();
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
    const Scripts scripts;
    kivSq::VM& vm = scripts.vm;
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

// ---- Code of C++, and names.

std::ifstream openSource(const std::string& path) {
    return std::ifstream(std::filesystem::path(KIV_TEST_MANUAL).parent_path().parent_path() / path, std::ios::binary);
}

Lines readLines(std::istream& file) {
    Lines lines;
    for (std::string line; std::getline(file, line); lines.push_back(line))
        if (line.ends_with('\r')) line.pop_back();
    return lines;
}

std::string withoutIndentation(std::string_view line) {
    const size_t start = line.find_first_not_of(' ');
    return start == line.npos ? "\n" : std::string(line.substr(start)) + '\n';
}

using Names = std::set<std::string, std::less<>>;

void addIdentifiers(Names& names, std::string_view code) {
    std::string name;
    for (const char c : std::string(code) + ' ') {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '_') {
            name += c;
        } else {
            names.insert(std::exchange(name, {}));
        }
    }
}

// A chapter: what it says, and the identifiers in its code and in that of its examples.
struct Chapter {
    std::string text;
    Names names;
    Names examples;

    // Those of the engine need no example.
    bool has(const std::string& path, const std::string& name) const {
        return text.find(path) != path.npos && names.contains(name) &&
               (examples.contains(name) || text.starts_with("### Of the engine"));
    }
};

std::vector<Chapter> readChapters(const Lines& lines) {
    std::vector<Chapter> chapters(1);
    std::string block; // its beginning; empty outside
    for (const std::string& line : lines) {
        if (line.starts_with("```")) {
            block = block.empty() ? line : "";
            continue;
        }
        if (block.empty() && line.starts_with("#")) chapters.emplace_back();
        Chapter& chapter = chapters.back();
        chapter.text += line + '\n';
        if (block == "```squirrel") addIdentifiers(chapter.examples, line);
        if (!block.empty()) continue;
        bool isCode = false;
        for (size_t from = 0, to = 0; to != line.npos; from = to + 1, isCode = !isCode) {
            to = line.find('`', from);
            if (isCode) addIdentifiers(chapter.names, std::string_view(line).substr(from, to - from));
        }
    }
    return chapters;
}

// "kiv.Item getSize" for all that scripts reach, but for what every native class has and what bases have.
constexpr const char* listNames = R"(
foreach (name in ["System", "IVec2", "IVec3", "Rect", "GUID", "GregorianDate", "Directory", "File", "Item", "Store",
                  "MemoryStore", "Packet", "Plugins"]) import("kiv." + name)
names <- []
function isOwn(name, parent) {
    if (name.len() > 0 && name[0] == '_') return false
    return ["constructor", "cloned", "weakref", "getClassName"].find(name) == null && !(parent && (name in parent))
}
function list(path, slots, parent) {
    foreach (name, value in slots) if (isOwn(name, parent)) {
        names.append(path + " " + name)
        if (typeof value == "class") list(path + (path == "" ? "" : ".") + name, value, value.getbase())
    }
    if (typeof slots != "class" || !slots.rawin("__kiv_getTable")) return
    foreach (name, value in slots.__kiv_getTable) names.append(path + " " + name)
}
foreach (name in ["std", "math", "string", "kiv", "host", "global", "util"]) list(name, getroottable()[name], null)
)";
constexpr const char* listRoot = R"(
local root = clone getroottable()
foreach (name in ["names", "isOwn", "list"]) delete root[name]
foreach (name in ["std", "math", "string", "kiv", "host", "global", "util"]) { names.append(" " + name); delete root[name] }
list("", root, null)
)";

TEST(ManualTest, HasEveryName) {
    auto file = openSource("doc/scripting.md");
    const std::vector<Chapter> chapters = readChapters(readLines(file));
    const Scripts scripts;
    kivSq::VM& vm = scripts.vm;
    ASSERT_TRUE(vm.executeString(listNames, "names") && vm.executeString(listRoot, "names"));
    const kivSq::Object names = vm.getRootTable().get("names");
    EXPECT_GT(names.getSize(), 300);
    for (const kivSq::Object& entry : names.asArray().getValues()) {
        std::string name;
        ASSERT_TRUE(entry.to(name));
        const std::string path = name.substr(0, name.find(' '));
        const bool isThere = std::any_of(chapters.begin(), chapters.end(), [&](const Chapter& chapter) {
            return chapter.has(path, name.substr(path.size() + 1));
        });
        EXPECT_TRUE(isThere) << name;
    }
}

TEST(ManualTest, QuotesWhatIsCompiled) {
    auto source = openSource("tests/script/HostingExamples.cpp");
    std::string code = "\n";
    for (const std::string& line : readLines(source)) code += withoutIndentation(line);
    auto file = openSource("doc/scripting.md");
    std::string block;
    int blocks = 0;
    for (const std::string& line : readLines(file)) {
        if (!block.empty() && line == "```") {
            EXPECT_NE(code.find(block), code.npos) << block;
            block.clear();
        }
        if (!block.empty()) block += withoutIndentation(line);
        if (line != "```cpp") continue;
        block = "\n";
        ++blocks;
    }
    EXPECT_GE(blocks, 10);
}

} // namespace
