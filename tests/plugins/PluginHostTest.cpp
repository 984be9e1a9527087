// Hunts: options that are lost, doubled or not obeyed, stores that are overwritten though they were not understood,
// workers too many or too few, and hosts that do not end when they are to.
#include "kiv/system/PluginHost.h"

#include "kiv/data/Packet.h"
#include "kiv/plugins/ProcessProtocol.h"
#include "kiv/process/ProcessPacketWriter.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/OptionsDB.h"
#include "kiv/store/StoreFile.h"
#include "kiv/system/System.h"
#include "tests/process/Children.h"
#include "tests/support/LogLines.h"
#include "tests/support/ProgramState.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

namespace kiv {
namespace {

using testing::Contains;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

struct PluginHostTest : testing::Test {
    PluginHostTest() {
        settings.pluginsDirectory = folder.utf8("p");
        settings.storePath = folder.utf8("store");
        settings.workerPath = support::childProgram;
        settings.workerArguments = {support::childProgram, "--plugins", folder.utf8("p")};
    }

    void addPlugin(const std::string& name, const std::string& autoexec, const std::string& main = "") const {
        std::filesystem::create_directories(folder.path("p/" + name));
        folder.write("p/" + name + "/autoexec.sq", autoexec);
        folder.write("p/" + name + "/main.sq", main);
    }
    // A whole life of a host; `during` is called in it once it has been started. Whether it has begun and ended well.
    bool run(const std::function<void(PluginHost&)>& during = [](PluginHost& host) { host.end("the test wants it"); }) {
        System::initialize();
        bool isGood = false;
        {
            const auto host = makeObject<PluginHost>(settings);
            isGood = host->start();
            if (isGood) during(*host);
            isGood = isGood && host->run();
            endText = host->getEndText();
            EXPECT_TRUE(System::deinitialize());
        }
        return isGood;
    }
    template <class Condition>
    static bool pumpUntil(PluginHost& host, Condition isDone) {
        for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60); !isDone(); host.pump())
            if (std::chrono::steady_clock::now() > end) return false;
        return true;
    }
    // Of the store's file; empty when there is none.
    std::string stored(const char* name) const {
        const auto store = makeObject<MemoryStore>(false);
        if (!StoreFile::load(store.get(), folder.utf8("store"))) return "no store";
        Item key("options");
        key.addString(name);
        const Item* value = store->get(key);
        return value ? std::string(value->getJSON(false)) : "none";
    }

    const support::TemporaryFolder folder;
    support::LogLines log;
    PluginHost::Settings settings;
    String endText;
};

// ---- Options.

TEST_F(PluginHostTest, ScriptsDeclareOptionsThatSurviveARestart) {
    addPlugin("a", R"(
        print(host.options.declare("a:count", "5", "Count", "of what there is", 0))
        print(host.options.declare("no colon", "5"))
        print(host.options.get("a:count") + host.options.has("a:count") + host.options.has("b:c"))
        host.options.onChange("a:count", @(value) print("first " + value))
        host.options.onChange("a:count", function(value) { throw "second " + value })
        host.options.declare("a:last", "")
        import("kiv.System")
        kiv.System.getPlugins().addListener("shutdown", @(nothing) host.options.set("a:last", "bye")))",
              R"(print(host.options.set("a:count", host.options.getInteger("a:count") + 1))
                 print(host.options.set("b:c", ""))
                 try { host.options.set("a:count", [1]) } catch (e) { print(e) }
                 try { host.options.declare("a:d", "", [1]) } catch (e) { print(e) }
                 try { host.options.declare("a:d") } catch (e) { print(e) }
                 try { host.options.declare("a:d\x00e", "") } catch (e) { print("declare: " + e) }
                 try { host.options.set("a:count", "1\x002") } catch (e) { print("set: " + e) }
                 host.end("it is over"))");
    for (const std::string value : {"5", "6", "41"}) {
        settings.options.clear();
        if (value == "41") settings.options = {{"a:count", value}};
        EXPECT_TRUE(run([](PluginHost&) {}));
        EXPECT_EQ(endText, "it is over");
        const std::string next = std::to_string(std::stoi(value) + 1);
        Lines lines = log.take();
        EXPECT_THAT(lines, Contains(value + "truefalse"));
        EXPECT_THAT(lines, Contains("first " + next));
        EXPECT_THAT(lines, Contains(HasSubstr("second " + next)));
        EXPECT_THAT(lines, Contains("option not set, reason: option 'b:c' does not exist"));
        for (const char* error : {"argument 2: expected string or integer, got array", "argument 3: expected string",
                                  "invalid argument count on native method call",
                                  "declare: argument 1: it holds a zero byte", "set: argument 2: it holds a zero byte"})
            EXPECT_THAT(lines, Contains(error));
        EXPECT_EQ(stored("a:count"), '"' + next + '"');
        EXPECT_EQ(stored("a:last"), "\"bye\"");
    }
}

TEST_F(PluginHostTest, ScriptsThatNeverPauseAreEndedOnRequest) {
    addPlugin("a", "", "while (true) {}");
    addPlugin("b", "", "host.end(\"it goes on\")");
    settings.options = {{"host:script_time", "50"}};
    EXPECT_TRUE(run([](PluginHost&) {}));
    EXPECT_EQ(endText, "it goes on");
    EXPECT_THAT(log.take(), Contains(HasSubstr("the script has run for more than 50 ms")));
}

TEST_F(PluginHostTest, WhatItCannotUnderstandItDoesNotWrite) {
    settings.options = {{"host:verbose", "1"}, {"no:such", "1"}};
    EXPECT_FALSE(run());
    EXPECT_THAT(log.take(), Contains("[HOST] there is no option 'no:such'"));
    EXPECT_EQ(folder.names(), std::set<std::string>());
    settings.options.clear();
    folder.write("store", "no store at all");
    EXPECT_FALSE(run());
    EXPECT_EQ(folder.read("store"), "no store at all");
    settings.storePath.clear();
    EXPECT_TRUE(run());
}

// ---- Workers.

TEST_F(PluginHostTest, KeepsAsManyWorkersAsTheOptionSays) {
    EXPECT_TRUE(run([&](PluginHost& host) {
        const auto countRunning = [&] {
            unsigned count = 0;
            for (unsigned i = 0; i < host.getWorkerCount(); ++i) count += host.getWorker(i).hasWorker();
            return count;
        };
        for (const unsigned count : {2u, 1u, 3u}) {
            host.getOptions().setValue("host:workers", std::to_string(count).c_str());
            EXPECT_EQ(host.getWorkerCount(), count);
            EXPECT_TRUE(pumpUntil(host, [&] { return countRunning() == count; }));
        }
        EXPECT_EQ(host.getWorkerStarts(), 4u);
        // One that is replaced at once, and does not end before it is gone.
        const SmartPointer<WorkerProcess> last(&host.getWorker(2));
        for (const unsigned count : {2u, 3u, 2u, 3u}) host.setWorkerCount(count);
        EXPECT_TRUE(pumpUntil(host, [&] {
            EXPECT_FALSE(last->hasWorker() && host.getWorker(2).isSupervising());
            return countRunning() == 3;
        }));
        EXPECT_EQ(host.getWorkerStarts(), 5u);
        host.getOptions().setValue("host:workers", "-5");
        EXPECT_EQ(host.getWorkerCount(), 0u);
        host.end("");
        EXPECT_TRUE(host.stop());
        host.setWorkerCount(1);
        EXPECT_EQ(host.getWorkerCount(), 0u) << "nobody would end it";
    }));
    const Lines lines = log.take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "[SUBPROCESS] the worker ends: its parent has asked it to"), 5);
    EXPECT_EQ(stored("host:workers"), "\"-5\"");
}

// ---- Ends, of a host that is a child itself.

struct HostProcess : support::Child {
    explicit HostProcess(const support::TemporaryFolder& folder) {
        std::filesystem::create_directories(folder.path("p"));
        EXPECT_TRUE(start({"host", folder.utf8("p"), folder.utf8("store")}));
    }
    bool waitForLine(const std::string& text) {
        return tickUntil([&] {
            for (std::string& line : lines()) seen.push_back(line);
            return std::any_of(seen.begin(), seen.end(),
                               [&](const std::string& line) { return line.find(text) != line.npos; });
        });
    }
    Lines seen;
};

TEST_F(PluginHostTest, EndsInGoodOrderWhenItIsAskedTo) {
    addPlugin("a", R"(if ("host" in getroottable()) host.options.declare("a:b", "c")
                      else print("worker " + std.worker_index))");
    const auto ends = [&](const char* how, const std::function<void(HostProcess&)>& end) {
        HostProcess host(folder);
        EXPECT_TRUE(host.waitForLine("[SUBPROCESS] worker 0"));
        end(host);
        EXPECT_EQ(host.finish(), 0) << how;
        EXPECT_TRUE(host.waitForLine("the worker ends: its parent has asked it to"));
        EXPECT_TRUE(host.waitForLine(how));
        EXPECT_EQ(stored("a:b"), "none"); // it has its default
        std::filesystem::remove(folder.path("store"));
    };
    ends("the host ends: asked to end by its parent", [](HostProcess& host) {
        host.getPacketWriter()->write(makeObject<Packet>(&ProcessProtocol::Terminate, short{0}).get());
    });
    ends("the host ends: its parent is gone", [](HostProcess& host) { host.close_stdin(); });
    if (support::isWine()) GTEST_SKIP() << "but for the interrupt: Wine does not deliver it to a process group";
    ends("the host ends: interrupted", [](HostProcess& host) { EXPECT_TRUE(host.sendBreak()); });
}

TEST_F(PluginHostTest, AKilledHostsWorkersEndThoughTheyAreBusy) {
    addPlugin("a", "", R"(if (!("host" in getroottable())) { print("busy"); while (true) {} })");
    HostProcess host(folder);
    EXPECT_TRUE(host.waitForLine("[SUBPROCESS] busy"));
    const std::string caption = "worker process ";
    const auto line = std::find_if(host.seen.begin(), host.seen.end(),
                                   [&](const std::string& each) { return each.find(caption) != each.npos; });
    ASSERT_NE(line, host.seen.end());
    const int64_t worker = std::stoll(line->substr(line->find(caption) + caption.size()));
    EXPECT_TRUE(Process::processExists(worker));
    host.terminate(true);
    EXPECT_TRUE(host.tickUntil([&] { return !Process::processExists(worker); }));
}

TEST_F(PluginHostTest, AKillLeavesTheOldOrTheNewStore) {
    addPlugin("a", R"(if ("host" in getroottable()) host.options.declare("a:count", "0"))",
              R"(while (true) {
                    local next = host.options.getInteger("a:count") + 1
                    host.options.set("a:count", next)
                    std.sleep(1)
                    print("set " + next + ".")
                 })");
    int written = 0;
    for (int round = 0; round < 4; ++round) {
        HostProcess host(folder);
        EXPECT_TRUE(host.waitForLine("set " + std::to_string(written + 20 + round) + "."));
        EXPECT_TRUE(host.tickUntil([&] { return std::filesystem::exists(folder.path("store")); }));
        host.terminate(true);
        const std::string value = stored("a:count");
        ASSERT_GT(value.size(), 2u) << value;
        ASSERT_EQ(value[0], '"') << value;
        EXPECT_GE(std::stoi(value.substr(1)), written); // the last ones may have been on their way
        written = std::stoi(value.substr(1));
    }
    EXPECT_GT(written, 0);
}

} // namespace
} // namespace kiv
