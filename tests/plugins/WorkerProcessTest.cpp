// Hunts: plug-ins other than the parent's, calls that nobody ends when a worker dies, packets of a dead worker that are
// answered to the next one, workers that command their parent or flood it, ends that wait or lose something.
// The other end is a real worker, see child/main.cpp.
#include "kiv/plugins/WorkerProcess.h"

#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/data/Packet.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/plugins/ProcessProtocol.h"
#include "kiv/rpc/RpcProvider.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/OptionsDB.h"
#include "kiv/system/System.h"
#include "tests/process/Children.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <optional>

namespace kiv {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Lines = std::vector<std::string>;

constexpr char unexpected[] = "subprocess quit unexpectedly, restarting";

// Has workers start at once.
struct NoJitter : Random {
    NoJitter() : Random(0), previous(exchangeCurrent(this)) {}
    ~NoJitter() override { exchangeCurrent(previous); }
    uint64_t randomUInt64() override { return 0; }
    Random* const previous;
};

struct WorkerProcessTest : testing::Test, WorkerProcess::Listener {
    WorkerProcessTest() {
        System::initialize();
        std::filesystem::create_directories(folder.path("p"));
        System::getPlugins()->setPath(folder.utf8("p").c_str());
    }
    ~WorkerProcessTest() override {
        if (worker) worker->stop(60000);
        worker = nullptr;
        EXPECT_TRUE(System::deinitialize());
    }

    void addPlugin(const std::string& name, const std::string& autoexec, const std::string& main) const {
        std::filesystem::create_directories(folder.path("p/" + name));
        folder.write("p/" + name + "/autoexec.sq", autoexec);
        folder.write("p/" + name + "/main.sq", main);
    }
    SmartPointer<WorkerProcess> make(const char* mode, WorkerProcess::Setup setup = {}) {
        const NoJitter atOnce;
        return makeObject<WorkerProcess>(support::childProgram.c_str(),
                                         List<String>{support::childProgram, mode, folder.utf8("p")}, std::move(setup),
                                         provider.get(), static_cast<WorkerProcess::Listener*>(this));
    }
    void start(const char* mode = "--plugins", WorkerProcess::Setup setup = {}) {
        worker = make(mode, std::move(setup));
        worker->start();
        ASSERT_TRUE(pumpUntil([&] { return worker->hasWorker(); }));
    }
    // The same; `news` counts what has come.
    void startCounting() {
        worker = make("--plugins");
        worker->setWaker([this] {
            ++news;
            news.notify_all();
        });
        worker->start();
        ASSERT_TRUE(pumpUntil([&] { return worker->hasWorker(); }));
    }
    void waitFor(int count) const {
        for (int seen = news; seen < count; seen = news) news.wait(seen);
    }
    // False when a minute has not brought it.
    template <class Condition>
    bool pumpUntil(Condition isDone) {
        for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60); !isDone();) {
            if (std::chrono::steady_clock::now() > end) return false;
            System::processEvents();
            if (worker) worker->processEvents();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return true;
    }
    bool pumpUntilLine(const std::string& line) {
        return pumpUntil([&] {
            for (std::string& each : log.take()) lines.push_back(each);
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        });
    }
    // The answer to a call, waited for.
    RpcChannel::Answer call(const char* method, const Item& arguments = Item()) {
        std::optional<RpcChannel::Answer> answer;
        worker->getRpc().call(method, arguments, [&](const RpcChannel::Answer& got) { answer = got; });
        EXPECT_TRUE(pumpUntil([&] { return answer.has_value(); }));
        return answer.value_or(RpcChannel::Answer());
    }
    // Has the worker answer so many packets of a megabyte, and die.
    void request(uint8_t count, bool isToDie) {
        const auto packet = makeObject<Packet>(2u);
        packet->getPayloadPointer()[0] = count;
        packet->getPayloadPointer()[1] = isToDie;
        EXPECT_TRUE(worker->send(packet.get()));
    }

    void onWorkerStarted(WorkerProcess&) override { steps.emplace_back("started"); }
    void onWorkerQuit(WorkerProcess&) override { steps.emplace_back("quit"); }
    void onWorkerPacket(WorkerProcess&, Packet& packet) override {
        steps.push_back("packet " + std::to_string(packet.getPayloadPointer()[0]));
        if (atPacket) atPacket();
    }

    const support::TemporaryFolder folder;
    support::LogLines log;
    Lines lines;
    Lines steps;
    std::function<void()> atPacket;
    std::atomic<int> news{0};
    const SmartPointer<RpcProvider> provider = makeObject<RpcProvider>();
    SmartPointer<WorkerProcess> worker;
};

// ---- What a worker boots.

TEST_F(WorkerProcessTest, BootsThePluginsThatItsParentHasSeenAndRunsItsScripts) {
    addPlugin("b", R"(std.info("autoexec b"))", R"(std.info("main b"))");
    addPlugin("a", R"(std.info("autoexec a of " + std.worker_index))", R"(std.info("main a"))");
    addPlugin("c", R"(std.info("autoexec c"))", "");
    WorkerProcess::Setup setup;
    setup.pluginsHashes = System::getPlugins()->getPluginHashesItem();
    setup.initScript = R"(std.info("init"))";
    setup.startupScript = R"(std.sleep(1); std.info("startup"))";
    setup.index = 7;
    folder.write("p/c/main.sq", R"(std.info("changed"))");
    addPlugin("d", R"(std.info("autoexec d"))", "");
    start("--plugins", setup);
    ASSERT_TRUE(pumpUntilLine("[SUBPROCESS] startup"));
    std::erase_if(lines, [](const std::string& line) {
        return line.find("[VERBOSE]") != line.npos || line.find("process") != line.npos;
    });
    EXPECT_THAT(lines,
                ElementsAre("[SUBPROCESS] [PLUGINS] [c] is left out: its digest is another",
                            "[SUBPROCESS] autoexec a of 7", "[SUBPROCESS] autoexec b", "[SUBPROCESS] [a] starting main",
                            "[SUBPROCESS] [b] starting main", "[SUBPROCESS] init", "[SUBPROCESS] main a",
                            "[SUBPROCESS] main b", "[SUBPROCESS] startup"));

    // Once in its life.
    const auto again = makeObject<Packet>(&ProcessProtocol::PluginsHashes, short{0});
    again->setString(ProcessProtocol::PluginsHashes.initScript, R"(std.info("once more"))");
    EXPECT_TRUE(worker->send(again.get()));
    EXPECT_TRUE(pumpUntilLine("[SUBPROCESS] [WORKER] a list of plug-ins is ignored: there was one already"));
    EXPECT_TRUE(call("echo").isGood);
    EXPECT_THAT(lines, Not(Contains("[SUBPROCESS] once more")));
}

// ---- Remote calls.

TEST_F(WorkerProcessTest, CallsGoBothWays) {
    const auto store = makeObject<MemoryStore>(false);
    const auto options = makeObject<OptionsDB>(Item(store.get()));
    options->addOption("a:b", "value", "", "title", "", 0);
    options->registerRpcCalls(provider.get());
    start();
    Item arguments("text");
    arguments.addInteger(5);
    EXPECT_EQ(call("echo", arguments).result, arguments);
    EXPECT_FALSE(call("unknown").isGood);

    const auto ask = [&] { return call("ask", "advanced_option_get").result.getJSON(false); };
    EXPECT_EQ(ask(), "[true,\"\",[]]"); // without the right
    worker->getRpc().addRight("rpc:advanced_option_get");
    EXPECT_THAT(ask(), HasSubstr("[\"a:b\",\"title\",\"\",\"value\",0,\"value\"]"));
    Object* caller = nullptr;
    provider->addRPC(
        "who",
        [&](const RpcContext& context) {
            caller = context.getCaller();
            context.finish();
        },
        nullptr, nullptr);
    worker->getRpc().requireRight("who", "right");
    call("ask", "who");
    EXPECT_EQ(caller, nullptr);
    worker->getRpc().addRight("right");
    call("ask", "who");
    EXPECT_EQ(caller, worker.get());
}

TEST_F(WorkerProcessTest, AWorkersDeathEndsOpenCallsAndTheNextOneAnswers) {
    start();
    std::optional<RpcChannel::Answer> open;
    const auto callOpen = [&] {
        open.reset();
        worker->getRpc().call("never", Item(), [&](const RpcChannel::Answer& answer) { open = answer; });
    };
    callOpen();
    EXPECT_FALSE(call("die").isGood);
    ASSERT_TRUE(open.has_value());
    EXPECT_FALSE(open->isGood);
    EXPECT_EQ(open->error, "the worker has died");
    EXPECT_FALSE(call("echo").isGood); // there is none
    ASSERT_TRUE(pumpUntil([&] { return worker->hasWorker(); }));
    EXPECT_TRUE(call("echo").isGood);
    callOpen();
    worker->stop(60000);
    ASSERT_TRUE(open.has_value());
    EXPECT_EQ(open->error, "the worker was stopped");
    EXPECT_THAT(steps, ElementsAre("started", "quit", "started", "quit"));
}

// ---- Packets around a worker's death.

TEST_F(WorkerProcessTest, WhatADeadWorkerHasSentArrivesBeforeItsEndAndIsNotAnsweredToTheNext) {
    startCounting();
    request(3, true);
    std::vector<bool> sent;
    atPacket = [&] { sent.push_back(worker->send(makeObject<Packet>(2u).get())); };
    // The start, three packets, the end, and the next start, while nobody looks.
    waitFor(6);
    EXPECT_TRUE(pumpUntil([&] { return steps.size() == 6; }));
    EXPECT_THAT(steps, ElementsAre("started", "packet 0", "packet 1", "packet 2", "quit", "started"));
    EXPECT_THAT(sent, ElementsAre(false, false, false));
    EXPECT_TRUE(worker->send(makeObject<Packet>(2u).get()));
}

TEST_F(WorkerProcessTest, WhatIsNotTakenWaitsInTheWorker) {
    startCounting();
    request(100, false);
    waitFor(65);
    EXPECT_EQ(news, 65); // the start, and 64 MiB
    ASSERT_TRUE(pumpUntil([&] { return steps.size() == 101; }));
    for (int i = 0; i < 100; ++i) EXPECT_EQ(steps[static_cast<size_t>(i) + 1], "packet " + std::to_string(i));
    // Those that nobody has taken go with it; the listener hears no more.
    steps.clear();
    request(100, false);
    atPacket = [&] { worker = nullptr; };
    EXPECT_TRUE(pumpUntil([&] { return !worker; }));
    EXPECT_THAT(steps, ElementsAre("packet 0"));
}

TEST_F(WorkerProcessTest, AWorkerCannotCommandItsParent) {
    start("attack");
    bool isCalled = false;
    provider->addRPC(
        "echo", [&](const RpcContext&) { isCalled = true; }, nullptr, nullptr);
    ASSERT_TRUE(pumpUntil([&] { return steps.size() == 2; }));
    EXPECT_THAT(steps[1], HasSubstr("packet"));
    EXPECT_FALSE(isCalled);
    EXPECT_THAT(log.take(), Contains("[WORKER 0] what only a parent may send is ignored").Times(1));
    EXPECT_EQ(worker->getRpc().getOpenCalls(), 0u);
    worker->stop(0);
}

// ---- Ends.

TEST_F(WorkerProcessTest, EndsWhenItIsAskedTo) {
    start();
    log.take();
    worker->stop(60000);
    EXPECT_FALSE(worker->isSupervising() || worker->hasWorker());
    const Lines said = log.take();
    EXPECT_EQ(said.back(), "[SUBPROCESS] the worker ends: its parent has asked it to");
    EXPECT_THAT(said, Not(Contains(unexpected)));
    worker->start(); // again
    worker->askToEnd();
    EXPECT_TRUE(pumpUntil([&] { return !worker->isSupervising(); }));
    EXPECT_THAT(log.take(), Not(Contains(unexpected)));
    EXPECT_THAT(steps, ElementsAre("started", "quit"));
}

TEST_F(WorkerProcessTest, IsEndedWhenItDoesNotEndInTime) {
    start("deaf");
    worker->stop(30);
    EXPECT_FALSE(worker->isSupervising());
    EXPECT_THAT(steps, ElementsAre("started", "quit"));
}

} // namespace
} // namespace kiv
