// Hunts: output that is lost or changed, quoting that changes arguments, scripts that wait for ever or not at all, and
// children that outlive the thread that waits for them.
#include "kiv/process/Process.h"
#include "kiv/script/NativeTable.h"
#include "tests/support/Gate.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const bool isWindows = std::string_view(KIV_TEST_CHILD).ends_with(".exe");

struct ProcessFunctionsTest : testing::Test {
    ProcessFunctionsTest() {
        notes.clear();
        kivSq::internal::NativeTable(vm->getSquirrelVM(), vm->getRootTable())
            .carried(
                "note", +[](const kivSq::Object& value) { notes.push_back(value.describe().c_str()); });
        vm->getRootTable().set("child", kivSq::Object::from(std::string(KIV_TEST_CHILD)));
    }

    // In the main VM, where it blocks, and in a thread, which waits: both come to the same.
    std::vector<std::string> run(const std::string& code) {
        EXPECT_TRUE(vm->executeString(code.c_str(), "t"));
        const std::vector<std::string> blocking = std::exchange(notes, {});
        EXPECT_TRUE(vm->executeString(("std.async(function () {" + code + "})").c_str(), "t"));
        vm->processEvents();
        EXPECT_TRUE(vm->threadsActive() || code.find("try") != std::string::npos) << "nothing was waited for";
        support::waitUntil([&] { return vm->processEvents(), !vm->threadsActive(); });
        EXPECT_EQ(blocking, notes);
        return std::exchange(notes, {});
    }

    static inline std::vector<std::string> notes;
    const support::Watchdog watchdog;
    std::unique_ptr<kivSq::VM> vm = std::make_unique<kivSq::VM>();
};

TEST_F(ProcessFunctionsTest, TheShellGetsTheLineAsItIs) {
    support::LogLines log;
    EXPECT_THAT(run("note(std.system(\"exit 7\")); note(std.system(\"echo to the log\"))"), ElementsAre("7", "0"));
    EXPECT_THAT(log.take(), testing::Contains("to the log").Times(2));
    const char* both = "local r = std.system_ext(\"echo out && echo err 1>&2 && exit 3\");"
                       "note(r.code); note(strip(r.out)); note(strip(r.err))";
    vm->executeString("strip <- string.strip", "t");
    EXPECT_THAT(run(both), ElementsAre("3", "out", "err"));
    const std::string quoted = isWindows ? "\"\\\"\" + child + \"\\\" report \\\"a  b\\\" c&d\""
                                         : "\"'\" + child + \"' report 'a  b'; echo '\\\"$HOME\\\"'\"";
    EXPECT_THAT(run("note(std.system_ext(" + quoted + ").out)").front(), HasSubstr("<a  b>"));
}

TEST_F(ProcessFunctionsTest, ProgramsGetTheirArgumentsAsTheyAre) {
    support::LogLines log;
    const std::string odd = "[\"\", \"a b\", \"\\\"quoted\\\" x\", \"back\\\\\", \"*$HOME%PATH%\", \"\\xC3\\xA4\"]";
    const std::vector<std::string> found =
        run("local a = [child, \"report\"]; a.extend(" + odd + "); note(std.system_ext_array(a).out)");
    EXPECT_THAT(found.front(),
                testing::StartsWith("<>\n<a b>\n<\"quoted\" x>\n<back\\>\n<*$HOME%PATH%>\n<\xC3\xA4>\n"));
    // By its name alone, as the shell finds it.
    const std::string named = isWindows ? "[\"cmd\", \"/c\", \"exit\", \"5\"]" : "[\"sh\", \"-c\", \"exit 5\"]";
    EXPECT_THAT(run("note(std.system_ext_array(" + named + ").code)"), ElementsAre("5"));
    // More than pipes and buffers hold, to the byte.
    EXPECT_THAT(run("local r = std.system_ext_array([child, \"flood\", \"3\"]); note(r.out.len() + r.err.len())"),
                ElementsAre("3145728"));
    EXPECT_THAT(run("try { std.system_ext_array([child, \"flood\", \"70\"]) } catch (e) { note(e) }"),
                ElementsAre("the program writes more than 64 MiB"));

    EXPECT_THAT(run("foreach (f in [@() std.system(1), @() std.system_ext([]), @() std.system_ext_array(\"x\"),"
                    "@() std.system_ext_array([]), @() std.system_ext_array([1]),"
                    "@() std.system_ext_array([\"no such program\"]), @() std.system(\"a\\x00b\"),"
                    "@() std.system_ext_array([child, \"\\x00\"])]) try { f(); note(\"none\") } catch (e) { note(e) }"),
                ElementsAre("argument 1: expected string, got integer", "argument 1: expected string, got array",
                            "argument 1: expected array of strings, got string",
                            "argument 1: expected array of strings, got array",
                            "argument 1: expected array of strings, got array", "the program can't be started",
                            "argument 1: it holds a zero byte", "argument 1: it holds a zero byte"));
}

TEST_F(ProcessFunctionsTest, AnAbortOrTheEndOfTheVMEndsTheChild) {
    support::LogLines log;
    const support::TemporaryFolder folder;
    const std::filesystem::path from = KIV_TEST_CHILD;
    // Under a name that no other process has.
    const std::string name =
        "kivQueued" + std::to_string(kiv::Process::getCurrentProcessId()) + from.extension().string();
    std::filesystem::copy_file(from, folder.path(name));
    for (const auto& entry : std::filesystem::directory_iterator(from.parent_path()))
        if (entry.path().extension() == ".dll")
            std::filesystem::copy_file(entry.path(), folder.path(entry.path().filename().string()));
    vm->getRootTable().set("child", kivSq::Object::from(folder.utf8(name)));
    const auto isThere = [&] { return kiv::Process::processExists(name.c_str()); };
    const auto start = [&] {
        vm->executeString("q <- std.queue(); q.push(@() note(std.system_ext_array([child, \"stay\"])))", "t");
        vm->processEvents();
        support::waitUntil(isThere);
    };
    start();
    vm->executeString("q.abort()", "t");
    vm->processEvents();
    EXPECT_TRUE(!vm->threadsActive() && notes == std::vector<std::string>{"null"});
    support::waitUntil([&] { return !isThere(); });
    start();
    vm.reset();
    support::waitUntil([&] { return !isThere(); });
}

} // namespace
