// Hunts: children that keep a caller waiting, output that is lost at a child's end, errors that close too much, and
// what stays open or alive behind them.

#include "tests/process/Children.h"
#include "tests/support/LogLines.h"
#include "tests/support/ProgramState.h"
#include "tests/support/TemporaryFolder.h"

#include "kiv/platform/ProcessList.h"
#include "kiv/process/ProcessLockFile.h"

#include <atomic>
#include <gmock/gmock.h>

using namespace kiv;
using support::Child;
using support::childProgram;
using testing::ElementsAre;
using testing::StartsWith;

namespace {

using Texts = std::vector<std::string>;

// The child program under a name that no other process has, in a folder outside of ASCII; the name, too, and longer
// than what some systems keep.
struct CopiedProgram {
    CopiedProgram() {
        const std::filesystem::path from = childProgram;
        name =
            "ein langes Pr\xC3\xB6gramm " + std::to_string(Process::getCurrentProcessId()) + from.extension().string();
        path = folder.utf8("") + name;
        std::filesystem::copy_file(from, std::filesystem::path(std::u8string(path.begin(), path.end())));
        for (const auto& entry : std::filesystem::directory_iterator(from.parent_path()))
            if (entry.path().extension() == ".dll")
                std::filesystem::copy_file(entry.path(), folder.path(entry.path().filename().string()));
    }

    support::TemporaryFolder folder;
    std::string name;
    std::string path;
};

} // namespace

TEST(Process, WithoutAChildDoesNothing) {
    Child child;
    EXPECT_FALSE(child.tick() || child.terminate(true) || child.sendBreak() || child.writeLine("x"));
    EXPECT_TRUE(child.exit_status() == -1 && child.isEOF() && child.isErrEOF() && child.getProcessId() == 0);
}

TEST(Process, TellsTheExitCodeAndStartsAgain) {
    Child child;
    support::LogLines log;
    for (const int32_t code : {0, 7, 255}) {
        ASSERT_TRUE(child.start({"exit", std::to_string(code)}));
        EXPECT_EQ(child.exit_status(), Process::stillActive);
        EXPECT_TRUE(child.finish() == code && !child.tick() && child.isEOF() && child.isErrEOF());
    }
    EXPECT_FALSE(child.terminate(false)); // there is none any more
    EXPECT_EQ(child.exit_status(), 255);
    EXPECT_EQ(log.take()[1], "[VERBOSE] executing '" + childProgram + " exit 7'");
}

TEST(Process, StartsAProgramByItsPathAlone) {
    Child child;
    ASSERT_TRUE(child.spawn(childProgram));
    for (const int64_t id = child.getProcessId(); Process::processExists(id);) std::this_thread::yield();
    // That it has ended is seen here, too.
    ASSERT_TRUE(child.spawn(childProgram, {}, nullptr, false));
    EXPECT_EQ(child.finish(), 0);
}

TEST(Process, TerminateEndsARunningChildOnce) {
    for (const bool wait : {false, true}) {
        Child child;
        ASSERT_TRUE(child.start({"stay"}));
        const int64_t id = child.getProcessId();
        EXPECT_TRUE(Process::processExists(id) && child.terminate(wait));
        EXPECT_FALSE(wait && Process::processExists(id));
        EXPECT_TRUE(child.exit_status() == -1 && !child.terminate(wait) && !child.tick());
        EXPECT_EQ(child.exit_status(), -1);
        EXPECT_TRUE(child.tickUntil([&] { return !Process::processExists(id); }));
    }
}

TEST(Process, RefusesASecondChildWhileOneRuns) {
    Child child;
    ASSERT_TRUE(child.start({"wait"}));
    support::LogLines log;
    EXPECT_TRUE(!child.start({"exit", "0"}) && child.error() != 0);
    EXPECT_THAT(log.takeOne(), StartsWith("can not start subprocess " + childProgram + " error: "));
    child.close_stdin();
    EXPECT_EQ(child.finish(), 0); // it did not notice
}

TEST(Process, AnEndThatSomebodyElseWasToldIsUnknown) {
    if (support::isWindows) GTEST_SKIP() << "everybody is told";
    Child child;
    ASSERT_TRUE(child.start({"exit", "7"}));
    while (!support::takeEndedChild(child.getProcessId())) std::this_thread::yield();
    EXPECT_TRUE(!child.tick() && child.exit_status() == -1 && child.error() != 0);
    EXPECT_FALSE(child.terminate(true));
}

TEST(Process, WhatCannotBeStartedIsLogged) {
    support::TemporaryFolder folder;
    folder.write("text.txt", "no program");
    folder.write("script.bat", "exit 0");
    const auto refuses = [](const std::string& path, const char* workingDirectory = nullptr) {
        support::LogLines log;
        Child child;
        EXPECT_FALSE(child.spawn(path, {path}, workingDirectory, false)) << path;
        EXPECT_NE(child.error(), 0);
        const Texts lines = log.take();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[1], "can not start subprocess " + path + " error: " + child.error_text().to_std_string());
        EXPECT_TRUE(!child.error_text().empty() && child.exit_status() == -1 && !child.tick());
    };
    for (const char* name : {"missing", "text.txt", "script.bat", "script.bat. ", ""}) // Windows drops ". "
        refuses(folder.utf8(name));
    refuses("");
    refuses(std::string("a\0b", 3));
    refuses(childProgram, folder.utf8("missing").c_str());
}

TEST(Process, ArgumentsArriveAsTheyWereGiven) {
    const Texts arguments = {
        "plain",     "a b", "",          "\t",           "say \"hi\"",           "inner\"quote",
        "C:\\dir\\", "\\",  "C:\\d d\\", "a\\\"b c\\\\", "\xC3\xA4\xE4\xB8\x96", "-x=*?%PATH%$HOME;&|"};
    for (const bool isBound : {false, true}) {
        Child child;
        Texts given = arguments, expected;
        given.insert(given.begin(), "report");
        given.push_back("\"kept as it is\"");
        for (const std::string& argument : arguments) expected.push_back("<" + argument + ">");
        expected.push_back("<kept as it is>");
        ASSERT_TRUE(child.start(given, isBound));
        EXPECT_EQ(child.finish(), 0);
        Texts lines = child.lines();
        ASSERT_FALSE(lines.empty());
        lines.pop_back();
        EXPECT_EQ(lines, expected);
    }
}

TEST(Process, ArgumentsAreJoinedForTheLog) {
    const auto joins = [](const List<String>& arguments, const std::string& text) {
        support::LogLines log;
        Child child;
        child.spawn("/no/program", arguments, nullptr, false);
        EXPECT_EQ(log.take().front(), "[VERBOSE] executing '" + text + "'");
    };
    joins({}, "/no/program");
    joins({"x", "a b", "c"}, "x \"a b\" c");
    joins({"x", "\"a b\"", "\"a\"b c"}, "x \"a b\" \"a\"b c");
    joins({"x", "", "a\tb", "C:\\a b\\", "a \"b\" c"}, "x \"\" \"a\tb\" \"C:\\a b\\\\\" \"a \\\"b\\\" c\"");
}

TEST(Process, NamesOutsideOfAsciiAreFound) {
    const CopiedProgram copy;
    const std::string work = copy.folder.utf8("work");
    std::filesystem::create_directory(copy.folder.path("work"));
    // The program is looked for where the parent is, not where the child will be.
    for (const std::string& path : {copy.path, std::filesystem::relative(childProgram).string()}) {
        Child child;
        ASSERT_TRUE(child.spawn(path, {path, "report"}, work.c_str(), false));
        EXPECT_EQ(child.finish(), 0);
        EXPECT_THAT(child.lines(), ElementsAre(work));
    }
}

TEST(Process, IsKnownByItsName) {
    const CopiedProgram copy;
    const char* const name = copy.name.c_str();
    const auto start = [&](Child& child, const char* command) {
        return child.spawn(copy.path, {copy.path, command, copy.name}, nullptr, false);
    };
    Child first, second, last;
    EXPECT_FALSE(Process::processExists(name));
    ASSERT_TRUE(start(first, "stay") && start(second, "stay"));
    EXPECT_TRUE(Process::processExists(name) && !Process::waitForProcessesToTerminate({"other", copy.name}, 0));
    EXPECT_TRUE(Process::terminateProcessesByName(name, second.getProcessId()));
    EXPECT_EQ(first.finish(), support::isWindows ? 0 : 137);
    EXPECT_TRUE(second.tick());
    // One of them ends all others, and waits for that.
    ASSERT_TRUE(start(last, "alone"));
    EXPECT_EQ(last.nextLine(), "alone");
    EXPECT_NE(second.finish(), Process::stillActive);
    EXPECT_TRUE(last.finish() == 0 && Process::waitForProcessesToTerminate({"other", copy.name}, 60000));
}

TEST(Process, KnowsProcesses) {
    const int64_t self = Process::getCurrentProcessId();
    EXPECT_TRUE(Process::processExists(self));
    for (const int64_t none : {int64_t{-1}, int64_t{0}, self + (int64_t{1} << 32)})
        EXPECT_FALSE(Process::processExists(none));
    for (const char* none : {"", "no such name", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(Process::processExists(none));
    std::string own;
    for (const kiv::platform::RunningProcess& process : kiv::platform::listProcesses())
        if (process.id == self) own = process.name;
    EXPECT_TRUE(Process::processExists(own.c_str()));
    own[0] = 'K'; // kivProcessTests
    EXPECT_EQ(Process::processExists(own.c_str()), support::isWindows);
}

TEST(ProcessPipes, CarryLinesBothWays) {
    Child child;
    ASSERT_TRUE(child.start({"copy"}));
    for (const char* line : {"one", "", "\xC3\xA4\xE4\xB8\x96 \t"}) EXPECT_TRUE(child.writeLine(line));
    EXPECT_TRUE(child.tickUntil([&] { return child.popReadAction() || !child.tick(); }));
    child.close_stdin();
    EXPECT_EQ(child.finish(), 0);
    EXPECT_THAT(child.lines(), ElementsAre("one", "", "\xC3\xA4\xE4\xB8\x96 \t"));
    child.popReadAction();
    EXPECT_FALSE(child.popReadAction());
}

TEST(ProcessPipes, HalfALineIsALineAtTheEnd) {
    Child child;
    ASSERT_TRUE(child.start({"half"}));
    EXPECT_TRUE(child.finish() == 3 && !child.isEOF());
    EXPECT_THAT(child.lines(), ElementsAre("whole", "half"));
    EXPECT_TRUE(child.isEOF());
}

// Each write must fit, so much is written only when the child's output is read meanwhile.
TEST(ProcessPipes, BothDirectionsMayBeFull) {
    Child child;
    ASSERT_TRUE(child.start({"copy"}));
    std::string line(300000, 'x');
    size_t written = 0, read = 0;
    for (; written < 40; ++written) {
        line[0] = static_cast<char>('A' + written);
        EXPECT_TRUE(child.writeLine(line));
    }
    EXPECT_TRUE(child.tickUntil([&] {
        for (String back; child.readLine(back); ++read) {
            line[0] = static_cast<char>('A' + read);
            EXPECT_TRUE(back == line);
        }
        return read == written;
    }));
}

TEST(ProcessPipes, InputThatNobodyReadsIsBounded) {
    Child child;
    ASSERT_TRUE(child.start({"stay"}));
    support::LogLines log;
    const String line(1 << 20, 'x');
    int taken = 0;
    for (; taken < 70 && child.writeLine(line); ++taken) child.tick();
    EXPECT_GE(taken, 63);
    EXPECT_LE(taken, 66);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(child.writeLine(line));
    EXPECT_THAT(log.take(), ElementsAre(StartsWith("[PROCESS] " + childProgram + " does not read its input")));
    EXPECT_TRUE(child.writeLine("a short one"));
}

// It is handed out by the buffer, and the child is never left waiting; of the shorter one more than the buffer holds is
// left in the pipe when the child is seen to have ended.
TEST(ProcessPipes, OutputWithoutLineEndsComesThroughAlsoAfterTheEnd) {
    for (const bool isReadMeanwhile : {true, false}) {
        Child child;
        const size_t megabytes = isReadMeanwhile ? 40 : 1;
        ASSERT_TRUE(child.start({"flood", std::to_string(megabytes)}));
        size_t total = 0;
        const auto drain = [&] {
            for (String line; child.readLine(line);) total += line.size();
            return child.isEOF() && !child.tick();
        };
        EXPECT_TRUE(!isReadMeanwhile || child.tickUntil(drain));
        EXPECT_TRUE(child.finish() == 0 && drain());
        EXPECT_EQ(total, megabytes << 20);
    }
}

TEST(ProcessPipes, OfErrorsThatNobodyReadsTheLatestAreKept) {
    Child child;
    support::LogLines log;
    constexpr int count = 400000;
    ASSERT_TRUE(child.start({"errors", std::to_string(count)}));
    EXPECT_EQ(child.finish(), 0);
    const Texts lines = log.take();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1],
              "[PROCESS] nobody reads the error output of " + childProgram + ", its oldest lines are dropped");
    int next = -1, last = -1;
    for (String line; child.readErrLine(line); ++next) {
        last = std::atoi(line.c_str() + 5);
        if (next < 0) next = last;
        ASSERT_EQ(line, "line " + std::to_string(next));
    }
    EXPECT_GT(next, 0);
    EXPECT_EQ(last, count - 1);
    EXPECT_TRUE(child.isErrEOF());
}

TEST(ProcessPipes, AClosedInputClosesNothingElse) {
    Child child;
    ASSERT_TRUE(child.start({"deaf"}));
    EXPECT_EQ(child.nextLine(), "deaf");
    EXPECT_TRUE(child.tickUntil([&] { return !child.writeLine("anybody there?"); }));
    EXPECT_TRUE(child.error() != 0 && child.tick() && !child.isEOF());
    EXPECT_TRUE(child.terminate(true));
}

TEST(ProcessPipes, AreForgottenByTheNextChild) {
    Child child;
    ASSERT_TRUE(child.start({"prompt"}));
    EXPECT_TRUE(child.tickUntil([&] { return child.popReadAction(); }));
    EXPECT_THAT(child.lines(), ElementsAre()); // more may come
    child.terminate(true);
    ASSERT_TRUE(child.start({"half"}));
    EXPECT_EQ(child.finish(), 3);
    EXPECT_THAT(child.lines(), ElementsAre("whole", "half"));
    EXPECT_EQ(child.error(), 0);
}

TEST(ProcessPipes, WorkInAProgramWithoutStandardStreams) {
    Child child;
    ASSERT_TRUE(child.start({"closed", childProgram}));
    EXPECT_EQ(child.finish(), 0);
    EXPECT_THAT(child.lines(), ElementsAre("passed on", "passed on"));
}

// A child that holds another one's pipe would keep that from seeing the end of its input.
TEST(ProcessHandles, OfThirtyChildrenAtOnceGoToNoOtherOne) {
    std::vector<Child> children(30);
    std::atomic<size_t> next{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (size_t at; (at = next++) < children.size();) EXPECT_TRUE(children[at].start({"wait"}, at % 2 == 0));
        });
    for (std::thread& thread : threads) thread.join();
    for (Child& child : children) {
        EXPECT_TRUE(child.tick());
        child.close_stdin();
        EXPECT_EQ(child.finish(), 0);
    }
}

TEST(ProcessHandles, OfTheParentAreNotInherited) {
    support::TemporaryFolder folder;
    for (const bool isBound : {false, true}) {
        std::ofstream open(folder.path("open")); // inheritable
        Child child;
        ASSERT_TRUE(child.start({"handles"}, isBound));
        const std::string count = child.nextLine();
        EXPECT_TRUE(support::isWindows || count == "3") << count;
        open.close();
        EXPECT_TRUE(kiv::ProcessLockFile(folder.utf8("open")).tryLock()); // on Windows not while it is open elsewhere
    }
}

TEST(ProcessHandles, AreAllGivenBack) {
    const auto startAll = [](int times) {
        for (int i = 0; i < times; ++i) {
            Child child;
            Process left; // whose child ends when its input does
            EXPECT_TRUE(left.spawn(childProgram, {childProgram, "wait"}, nullptr, i % 2 == 0));
            EXPECT_TRUE(child.start({"exit", "1"}, i % 2 == 0) && child.finish() == 1 && !child.spawn("/no/program"));
            EXPECT_TRUE(child.start({"stay"}) && child.terminate(i % 3 == 0));
        }
    };
    startAll(2); // what is made once
    const size_t before = support::countOpenHandles();
    startAll(6); // all pairs of the two ways to start and to end
    EXPECT_EQ(support::countOpenHandles(), before);
    Child other;
    EXPECT_TRUE(other.tickUntil([] { return !support::hasChildren(); }));
}

TEST(ProcessSignals, AreNotInherited) {
    support::setBrokenPipeIgnored(true);
    for (const bool isBound : {false, true}) {
        Child child;
        EXPECT_TRUE(child.start({"signal"}, isBound));
        EXPECT_EQ(child.nextLine(), "default");
    }
    support::setBrokenPipeIgnored(false);
}

TEST(ProcessSignals, BreakEndsAChild) {
    Child child;
    ASSERT_TRUE(child.start({"handles"}));
    child.nextLine(); // it runs
    if (support::isWine()) GTEST_SKIP() << "Wine does not deliver it to a process group";
    if (!child.sendBreak() && support::isWindows) GTEST_SKIP() << "no console to share";
    EXPECT_NE(child.finish(), 0);
}

TEST(ProcessParents, TakeBoundChildrenWithThem) {
    Child parent;
    ASSERT_TRUE(parent.start({"parent", childProgram}));
    const int64_t id = std::stoll(parent.nextLine());
    EXPECT_TRUE(Process::processExists(id) && parent.terminate(true));
    EXPECT_TRUE(parent.tickUntil([&] { return !Process::processExists(id); }));
}

// The thread that starts a bound child may end before it.
TEST(ProcessParents, AreProgramsNotThreads) {
    Child child;
    std::thread([&] { EXPECT_TRUE(child.start({"wait"}, true)); }).join();
    child.close_stdin();
    EXPECT_EQ(child.finish(), 0);
}

TEST(ProcessLockFile, IsHeldByOneProgram) {
    support::TemporaryFolder folder;
    const String path = folder.utf8("lock");
    kiv::ProcessLockFile lock(path), other(path), impossible(folder.utf8("missing/lock"));
    Child child;
    ASSERT_TRUE(child.start({"lock", path}));
    EXPECT_EQ(child.nextLine(), "locked");
    EXPECT_FALSE(lock.tryLock());
    child.terminate(true); // the system unlocks
    EXPECT_TRUE(child.tickUntil([&] { return lock.tryLock(); }));
    EXPECT_TRUE(lock.tryLock() && !other.tryLock());
    ASSERT_TRUE(child.start({"lock", path}));
    EXPECT_EQ(child.nextLine(), "refused");
    lock.unlock();
    lock.unlock();
    EXPECT_TRUE(other.tryLock() && !impossible.tryLock() && std::filesystem::exists(folder.path("lock")));
}
