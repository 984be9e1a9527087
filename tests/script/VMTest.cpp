// Hunts: modules that are run twice or searched again, errors that are not told, told twice or told late, values left
// on the engine's stack, and handles, threads and VMs that outlive what they belong to.
#include "kiv/script/VM.h"

#include "kiv/script/NativeTable.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

struct VMTest : testing::Test {
    VMTest() { run("out <- []"); }

    bool run(const std::string& code) { return vm->executeString(code.c_str(), "t"); }
    void add(const char* name, void (*function)()) {
        kivSq::internal::NativeTable(vm->getSquirrelVM(), vm->getRootTable()).carried(name, function);
    }
    // What scripts have appended to `out` since the last time.
    std::string takeOut() {
        std::string all;
        for (const kivSq::Object& each : vm->getRootTable().get("out").asArray().getValues())
            all += (all.empty() ? "" : " ") + std::string(each.describe().c_str());
        run("out.clear()");
        return all;
    }

    std::unique_ptr<kivSq::VM> vm = std::make_unique<kivSq::VM>();
};

TEST_F(VMTest, ModulesAreBroughtInOnceFromTheFirstPath) {
    const support::TemporaryFolder first, second;
    support::LogLines log;
    first.write("m.sq", "out.append(\"first\"); import(\"self\")");
    second.write("m.sq", "out.append(\"second\")");
    second.write("self.sq", "\xEF\xBB\xBFout.append(\"self\"); import(\"self\"); import(\"m\")");
    second.write("fails.sq", "out.append(\"fails\")\nthrow 1");
    std::filesystem::create_directory(first.path("folder.sq"));
    vm->addImportSearchPath(first.utf8("").c_str());
    vm->addImportSearchPath(second.utf8("").c_str());
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(run("import(\"m\"); import(\"fails\")"));
    EXPECT_EQ(takeOut(), "first self fails");
    EXPECT_THAT(log.takeOne(), HasSubstr("fails.sq:2]")); // once, with the file's path

    // Not found is asked once, too.
    EXPECT_TRUE(run("import(\"late\")"));
    EXPECT_EQ(log.takeOne(), "no import found for <late>");
    second.write("late.sq", "out.append(\"late\")");
    EXPECT_TRUE(run("import(\"late\")") && takeOut().empty() && log.take().empty());
    EXPECT_TRUE(vm->getLibrary().isImported("late") && vm->getLibrary().isImported("fails"));
    EXPECT_THAT(vm->getLibrary().getImported(), ElementsAre("fails", "late", "m", "self"));

    // A module lies below a search path.
    const std::string absolute = first.utf8("m");
    for (const std::string& name : {std::string("../") + first.utf8("m").substr(first.utf8("m").find("kiv-")),
                                    std::string("x/../m"), absolute, std::string(), std::string("folder")}) {
        vm->import(name.c_str());
        EXPECT_EQ(log.takeOne(), "no import found for <" + name + ">");
    }
    EXPECT_EQ(takeOut(), "");
}

TEST_F(VMTest, CallbacksMayImportAndRegister) {
    support::LogLines log;
    vm->setImportCallback(
        "app.Outer",
        [](kivSq::VM* importer, const char* extra) {
            EXPECT_STREQ(extra, "more");
            for (int i = 0; i < 50; ++i) importer->setImportCallback(std::to_string(i).c_str(), nullptr, "");
            importer->setImportCallback(
                "app.Inner",
                [](kivSq::VM* inner, const char* none) {
                    EXPECT_STREQ(none, "");
                    inner->executeString("out.append(\"inner\")", "t");
                },
                nullptr);
            importer->import("app.Inner");
            importer->executeString("out.append(\"outer\")", "t");
        },
        "more");
    EXPECT_TRUE(run("import(\"app.Outer\"); import(\"app.Outer\"); import(\"app.Inner\")"));
    EXPECT_EQ(takeOut(), "inner outer");
    EXPECT_TRUE(log.take().empty());
    EXPECT_TRUE(run("import(\"7\")")); // registered with no function
    EXPECT_EQ(log.takeOne(), "no import found for <7>");
    EXPECT_TRUE(run("try { import(\"app.Inner\\x00\") } catch (e) { out.append(e) }"));
    EXPECT_EQ(takeOut(), "argument 1: it holds a zero byte");
}

TEST_F(VMTest, ErrorsAreLoggedOnceAndLeaveAUsableVM) {
    support::LogLines log;
    const SQInteger top = sq_gettop(vm->getSquirrelVM());
    EXPECT_FALSE(run("x <- ;"));
    EXPECT_THAT(log.takeOne(), StartsWith("[SQ.COMPILER] t(1): "));
    EXPECT_FALSE(run("function inner(a) {\n throw \"no \" + a }\nlocal secret = [1]; inner(7)"));
    EXPECT_THAT(log.take(),
                ElementsAre("[SQ.INTERPRETER] no 7", "CALLSTACK:", "* inner() [t:2]", "   a=7",
                            HasSubstr("this=(table : 0x"), "* main() [t:3]", HasSubstr("secret=(array : 0x"),
                            HasSubstr("vargv="), HasSubstr("this=(table : 0x"), ""));
    EXPECT_STREQ(vm->getLastError().c_str(), "no 7");
    EXPECT_TRUE(run("try { throw \"caught\" } catch (e) {}"));
    EXPECT_TRUE(vm->getLastError().empty()) << vm->getLastError();
    EXPECT_TRUE(run("import; 5") && log.take().empty());
    EXPECT_TRUE(run("local s = \"ab\"; for (local i = 0; i < 10; i++) s += s; print(s)"));
    const std::string printed = log.takeOne();
    EXPECT_TRUE(printed.size() == 2048 && printed.ends_with("abab")) << printed;
    // Whole, and of the last one.
    EXPECT_FALSE(run("throw std.encode_json(array(150, 1)) + \"\\x00.\""));
    EXPECT_EQ(vm->getLastError().size(), 303u);
    EXPECT_THAT(log.take().front(), EndsWith(std::string("1]\0.", 4)));
    EXPECT_FALSE(run(std::string(300, '(')));
    EXPECT_STREQ(vm->getLastError().c_str(), "the source is nested too deeply");
    EXPECT_EQ(log.takeOne(), "[SQ.COMPILER] t: the source is nested too deeply");
    const auto fail = [](SQVM* v) -> SQInteger {
        SQUserPointer text = nullptr;
        sq_getuserdata(v, -1, &text, nullptr);
        throw std::runtime_error(static_cast<const char*>(text));
    };
    vm->getRootTable().set("fail", vm->newClosure(fail, "native", 7));
    EXPECT_FALSE(run("fail()"));
    EXPECT_THAT(log.take(), testing::Contains("[SQ.INTERPRETER] native").Times(1));
    EXPECT_TRUE(run("for (local i = 0; i < 60; i++) try fail() catch (e) {}"));
    for (int i = 0; i < 60; ++i) run(i % 2 == 0 ? "throw i" : "local a = 1; return a");
    EXPECT_EQ(sq_gettop(vm->getSquirrelVM()), top);
    EXPECT_TRUE(run("out.append(1)") && takeOut() == "1");
}

TEST_F(VMTest, ClosuresOwnWhatTheyCarry) {
    const auto value = std::make_shared<int>(7);
    const SQFUNCTION read = [](SQVM* v) -> SQInteger {
        SQUserPointer data = nullptr;
        sq_getuserdata(v, -1, &data, nullptr);
        sq_pushinteger(v, **static_cast<std::shared_ptr<int>*>(data));
        return 1;
    };
    vm->getRootTable().set("read", vm->newClosure(read, value));
    EXPECT_TRUE(value.use_count() == 2 && run("out.append(read())") && takeOut() == "7");
    EXPECT_TRUE(run("delete ::read") && value.use_count() == 1);
}

TEST_F(VMTest, HandlesAreReleasedOnOtherThreadsAndAfterTheVM) {
    run("held <- {}; weak <- held.weakref()");
    kivSq::Object held = vm->getRootTable().get("held");
    kivSq::Object leftOver = vm->getRootTable();
    run("delete getroottable().held");
    std::thread([taken = std::move(held)]() mutable { taken = {}; }).join();
    const kivSq::Object root = vm->getRootTable();
    EXPECT_TRUE(run("out.append(weak != null)")); // until the next pass
    vm->processEvents();
    EXPECT_TRUE(run("out.append(weak)"));
    EXPECT_EQ(takeOut(), "true null");

    run("std.async(@() std.sleep_forever()); std.queue().push(@() std.sleep_forever())");
    vm->processEvents();
    vm.reset();
    EXPECT_EQ(kivSq::VM::current(), nullptr);
    EXPECT_TRUE(leftOver.get("out").isNull());
    // Also while there is another one.
    kivSq::Object moved = kivSq::Object(leftOver);
    vm = std::make_unique<kivSq::VM>();
    EXPECT_TRUE(run("out <- []"));
    EXPECT_TRUE(leftOver.get("out").isNull() && kivSq::Object(leftOver).isNull());
    vm->getRootTable().set("old", leftOver);
    EXPECT_TRUE(run("out.append(old)") && takeOut() == "null");
    std::thread([taken = std::move(moved)]() mutable { taken = {}; }).join();
    leftOver = {};
    vm->processEvents();
}

TEST_F(VMTest, DestroyingItInAScriptIsRefused) {
    support::LogLines log;
    static std::unique_ptr<kivSq::VM>* owner;
    owner = &vm;
    add("destroy", [] { owner->reset(); });
    for (const char* code : {"destroy(); out.append(1); try import(\"m\") catch (e) {}",
                             "std.async(function () { destroy(); std.sleep(1) }); pump <- 1"}) {
        kivSq::VM& before = *vm;
        EXPECT_TRUE(run(code));
        if (vm) before.processEvents();
        EXPECT_EQ(vm, nullptr);
        EXPECT_THAT(log.take().front(), HasSubstr("the VM is destroyed inside a running script"));
        vm = std::make_unique<kivSq::VM>(); // beside what is left of it
        EXPECT_TRUE(run("out <- []; std.async(@() out.append(2))"));
        vm->processEvents();
        EXPECT_EQ(takeOut(), "2");
        add("destroy", [] { owner->reset(); });
    }
    EXPECT_TRUE(log.take().empty());
}

} // namespace
