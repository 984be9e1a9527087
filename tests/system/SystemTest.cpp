// Hunts: a start or stop that is taken twice or halfway, phases out of order, references, tasks and alarms that outlive
// the end or are lost in it, threads and handles left behind.
#include "kiv/system/System.h"

#include "kiv/core/Buffer.h"
#include "kiv/core/Clock.h"
#include "kiv/files/Directory.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/process/AsyncSupervisor.h"
#include "kiv/script/NativeTable.h"
#include "kiv/store/GUIDDomainDB.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/system/Application.h"
#include "kiv/tasks/Alarm.h"
#include "kiv/tasks/LambdaTask.h"
#include "kiv/tasks/MainPool.h"
#include "kiv/tasks/Scheduler.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/support/Gate.h"
#include "tests/support/LogLines.h"
#include "tests/support/ProgramState.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <set>
#include <stdexcept>
#include <thread>

namespace kiv {
namespace {

using testing::ElementsAre;

constexpr char reinitialized[] = "trying to reinitialize kiv::System";
constexpr char nonExistent[] = "trying to deinitialize non-existant kiv::System";
constexpr char openReferences[] = "trying to deinitialize kiv::System, but there are still open references";

struct SystemTest : testing::Test {
    SystemTest() { EXPECT_TRUE(System::initialize()); }
    ~SystemTest() override { EXPECT_TRUE(!Object::system() || System::deinitialize()); }
};

struct Mortal : Object {
    explicit Mortal(std::function<void()> f) : atDeath(std::move(f)) {}
    ~Mortal() override { atDeath(); }
    const std::function<void()> atDeath;
};

struct Hooks : Application {
    void onTick() override {
        if (tick) tick();
    }
    void onShutdown() override {
        if (shutdown) shutdown();
    }
    std::function<void()> tick, shutdown;
};

struct CountingKernel : Parallel::Kernel {
    void prepare(unsigned& parts) override { parts = 7; }
    void executePart(unsigned) override { ++count; }
    void finish() override { isFinished = true; }
    std::atomic<unsigned> count{0};
    bool isFinished = false;
};

// ---- Start and stop.

TEST(SystemLife, BeginsAndEndsOnceAndMayBeginAgain) {
    support::LogLines log;
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(Object::system() || System::getMainPool() || System::isMainThread() || System::deinitialize());
        EXPECT_EQ(log.takeOne(), nonExistent);

        EXPECT_TRUE(System::initialize());
        System* const system = Object::system();
        EXPECT_FALSE(System::initialize());
        EXPECT_EQ(log.takeOne(), reinitialized);
        ASSERT_EQ(Object::system(), system);
        EXPECT_EQ(system->getReferenceCount(), 1);
        EXPECT_EQ(System::getGlobalMainQueue().getType(), 0u);
        EXPECT_EQ(System::getGlobalParallelQueue().getType(), 0x402u);
        EXPECT_EQ(System::getGlobalDeleteIOQueue().getType(), 0xA07u);
        EXPECT_TRUE(System::getMainPool() == MainPool::current() && System::getThreadPool() == ThreadPool::current());
        EXPECT_TRUE(System::getScheduler() == Scheduler::current() && System::isMainThread());

        EXPECT_TRUE(System::deinitialize() && log.take().empty());
    }
}

TEST_F(SystemTest, AnOpenReferenceRefusesTheEndAndChangesNothing) {
    support::LogLines log;
    Hooks application;
    application.shutdown = [] { FAIL() << "told of an end that does not come"; };
    const auto expectRefusal = [&] {
        EXPECT_FALSE(System::deinitialize());
        EXPECT_EQ(log.takeOne(), openReferences);
    };
    SmartPointer<System> reference = Object::system();
    expectRefusal();
    reference.reset();
    bool hasRun = false;
    System::getGlobalMainQueue().pushTask(makeTask(expectRefusal)); // from within a pump
    System::getGlobalMainQueue().pushTask(makeTask([&] { hasRun = true; }));
    System::processEvents();
    EXPECT_TRUE(hasRun);
    std::thread([&] { EXPECT_FALSE(System::deinitialize()); }).join();
    EXPECT_NE(log.takeOne(), openReferences);
    application.shutdown = nullptr;
    EXPECT_TRUE(System::deinitialize());
}

TEST(SystemLife, RoundsLeaveNoThreadsAndHandlesBehind) {
    const auto round = [] {
        EXPECT_TRUE(System::initialize());
        const auto execute = [] {
            CountingKernel kernel;
            System::execute(kernel);
            EXPECT_TRUE(kernel.isFinished && kernel.count == 7);
        };
        std::thread other(execute);
        execute();
        other.join();
        System::getGlobalDeleteIOQueue().pushTask(makeTask([] {}));
        System::catchInterrupts();
        System::processEvents();
        EXPECT_TRUE(System::deinitialize());
    };
    round();
    round();
    const size_t handles = support::countOpenHandles(), threads = support::countThreads();
    for (int i = 0; i < 20; ++i) round();
    // Windows may take a moment to remove a thread that was joined.
    for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
         support::countThreads() > threads && std::chrono::steady_clock::now() < end; std::this_thread::yield()) {
    }
    EXPECT_LE(support::countThreads(), threads);
    EXPECT_LE(support::countOpenHandles(), handles + support::handlesOfLocks);
}

// ---- The pump.

TEST_F(SystemTest, APumpRunsItsPhasesInOrder) {
    ManualClock clock(0xFFFFFFFF); // alarms are due across the wrap
    std::vector<std::string> steps;
    const auto step = [&steps](const char* name) { return [&steps, name] { steps.push_back(name); }; };
    Hooks application;
    application.tick = step("application");
    EXPECT_EQ(Object::application(), &application);
    Connection listener = System::connectTick(step("listener"));
    const kivSq::Object nothing = System::getVM()->newClosure("return 1", 8, "test");
    System::getVM()->createThread(nothing, [&](const kivSq::Object&, bool) { steps.push_back("scripts"); });
    const auto alarm = makeObject<Alarm>(std::function<void()>(step("alarm")));
    alarm->scheduleIn(0);
    clock.advance(1);
    makeObject<Mortal>(step("release"))->takeTimedReference();
    System::getGlobalMainQueue().pushTask(makeTask(step("task")));
    System::processEvents();
    EXPECT_THAT(steps, ElementsAre("application", "listener", "scripts", "task", "alarm", "release"));
    for (const char* phase : {"Tick", "VM", "Queue", "Scheduler"})
        EXPECT_EQ(System::getPerfMon()->find(phase)->count, 1u) << phase;

    // What fails does not keep the rest from running.
    support::LogLines log;
    application.tick = [] { throw std::runtime_error("tired"); };
    System::getVM()->createThread(nothing, [](const kivSq::Object&, bool) { throw 1; });
    listener = System::connectTick([] { throw std::runtime_error("tired"); });
    const Connection behind = System::connectTick(step("behind"));
    steps.clear();
    System::getGlobalMainQueue().pushTask(makeTask([] { throw std::runtime_error("tired, too"); }));
    System::getGlobalMainQueue().pushTask(makeTask(step("task")));
    System::processEvents();
    EXPECT_THAT(steps, ElementsAre("behind", "task"));
    EXPECT_EQ(log.take().size(), 4u);
}

TEST_F(SystemTest, ScriptsEndWithItButNotItWithinAScript) {
    support::LogLines log;
    kivSq::VM& vm = *System::getVM();
    kivSq::internal::NativeTable(vm.getSquirrelVM(), vm.getRootTable()).carried("end", &System::deinitialize);
    EXPECT_TRUE(vm.executeString("hasEnded <- end()", "test") && vm.getRootTable().get("hasEnded").isBool());
    EXPECT_EQ(log.takeOne(), "[ASSERT] [SYSTEM] deinitialize inside a running script");
    vm.executeString("std.async(@() end())", "test");
    System::processEvents();
    EXPECT_EQ(log.takeOne(), "[ASSERT] [SYSTEM] deinitialize inside a running script");

    vm.executeString("std.async(@() std.sleep_forever())", "test");
    System::processEvents();
    kivSq::Object value = vm.getRootTable();
    makeObject<Mortal>([] { System::processEvents(); })->takeTimedReference(); // when the scripts have gone
    EXPECT_TRUE(System::deinitialize() && !System::getVM() && !kivSq::VM::current());
    value = {};
    EXPECT_TRUE(System::initialize() && System::getVM()->executeString("std.isnull(1)", "test"));
}

TEST_F(SystemTest, ATaskMayPumpInALoopOfItsOwn) {
    std::vector<int> steps;
    TaskQueue second(TaskQueue::Main);
    System::getGlobalMainQueue().pushTask(makeTask([&] {
        second.pushTask(makeTask([&] { steps.push_back(2); }));
        makeObject<Mortal>([&] { steps.push_back(3); })->takeTimedReference();
        steps.push_back(1);
        System::processEvents();
        steps.push_back(4);
    }));
    System::processEvents();
    EXPECT_THAT(steps, ElementsAre(1, 2, 3, 4));
}

TEST_F(SystemTest, ListenersOfPluginsHearOfBootsPassesAndTheEnd) {
    const support::TemporaryFolder folder;
    EXPECT_EQ(System::getPluginsDirectory(), Directory::join(System::getBaseDirectory(), "Plugins"));
    EXPECT_TRUE(Directory::exists(System::getBaseDirectory()));
    System::setBaseDirectory(folder.utf8(""));
    EXPECT_EQ(System::getPlugins()->getPath(), Directory::join(folder.utf8(""), "Plugins"));
    for (const char* name : {"Plugins/a", "Plugins/b"}) Directory::create(folder.utf8(name));
    folder.write("Plugins/a/autoexec.sq", R"(import("kiv.System")
plugins <- kiv.System.getPlugins()
steps <- []
plugins.addListener("booted", function(names) { steps.append(names.reduce(@(a, b) a + b)); throw "tired" })
plugins.addListener("shutdown", function(nothing) { if (nothing == null) print("bye") }))");
    folder.write("Plugins/b/main.sq", R"(steps.append("main")
plugins.addListener("booted", @(names) steps.append(names.len()))
plugins.addListener("tick", @(time) steps.append(time)))");
    const ManualClock clock(7);
    support::LogLines log;
    System::getPlugins()->executeBootstrapScripts(true);
    System::processEvents();
    System::processEvents();
    System::getVM()->executeString("text <- steps.reduce(@(a, b) a + \" \" + b)", "test");
    EXPECT_EQ(System::getVM()->getRootTable().get("text").describe(), "main ab 2 7");
    log.take();
    EXPECT_TRUE(System::deinitialize() && !System::getPlugins());
    EXPECT_EQ(log.takeOne(), "bye");
}

// ---- The end with work left.

std::atomic<int> g_chained{0};

// Each leaves another when it dies, by one of the ways there are, until the depth is 0.
class Chained : public Object {
public:
    explicit Chained(unsigned depth) : m_depth(depth) { ++g_chained; }
    ~Chained() override {
        if (m_depth > 0) leave(m_depth, makeObject<Chained>(m_depth - 1));
        --g_chained;
    }
    static void leave(unsigned way, SmartPointer<Chained> next) {
        const auto push = [&next](TaskQueue& queue) { queue.pushTask(makeTask([held = std::move(next)] {})); };
        way %= 6;
        if (way == 0) return next->takeTimedReference();
        if (way == 1) return next->increaseReferenceCount(), next->decreaseReferenceCountAsyncOnParallel();
        if (way == 2) return push(System::getGlobalMainQueue());
        if (way == 3) return push(System::getGlobalParallelQueue());
        if (way == 4) return push(System::getGlobalDeleteIOQueue());
        if (!System::isMainThread()) return next->takeTimedReference();
        makeObject<Alarm>(std::function<void()>([next] {}))->scheduleIn(1 << 20);
    }

private:
    const unsigned m_depth;
};

TEST(SystemLife, TheEndReleasesEverythingThatIsLeftInAnyOrder) {
    for (unsigned round = 0; round < 60; ++round) {
        ASSERT_TRUE(System::initialize());
        // A queue of the application's own is still at work when the end begins, and leaves as much.
        const auto own = makeObject<TaskQueue>(TaskQueue::IO);
        std::promise<void> end;
        own->pushTask(makeTask([&] {
            end.get_future().wait();
            for (unsigned way = 0; way < 6; ++way) Chained::leave(way + round, makeObject<Chained>(13 + way));
        }));
        Hooks application;
        int pushed = 0;
        application.shutdown = [&] {
            System::getGlobalParallelQueue().pushTask(makeTask([&] { ++pushed; }));
            System::getGlobalParallelQueue().wait();
            end.set_value();
        };
        for (unsigned way = 0; way < 24; ++way) Chained::leave(way, makeObject<Chained>(round + way));
        if (round % 3 == 0) System::processEvents();
        EXPECT_TRUE(System::deinitialize() && pushed == 1);
        EXPECT_EQ(g_chained, 0) << "round " << round;
    }
}

// Else it would wait for ever for the threads they are on.
TEST_F(SystemTest, TheEndStopsSupervisorsThatNobodyHasStopped) {
    const support::Watchdog watchdog;
    struct Supervisor : AsyncSupervisor {
        Supervisor() : AsyncSupervisor("/no/such/worker") {}
        ~Supervisor() override { terminate(); }
        void startAndWait() {
            const auto countBusy = [] {
                return System::getThreadPool()->getThreadCount() - System::getThreadPool()->getIdleCount();
            };
            support::waitUntil([&] { return countBusy() == 0; });
            start();
            support::waitUntil([&] { return countBusy() > 0; });
        }
        using AsyncSupervisor::start;
        void onProcessStarted() override {}
        void onProcessQuit() override {}
        void onPacket(Packet*) override {}
    } atWork, asked, late;
    atWork.startAndWait();
    asked.start();
    makeObject<Mortal>([&] { late.startAndWait(); })->takeTimedReference();
    EXPECT_TRUE(System::deinitialize());
}

TEST(SystemLife, ServicesThatAreStillHeldDoNotDisturbTheNextSystem) {
    EXPECT_TRUE(System::initialize());
    const SmartPointer<ThreadPool> pool = System::getThreadPool();
    const SmartPointer<Scheduler> scheduler = System::getScheduler();
    const SmartPointer<TaskQueue> queue = &System::getGlobalParallelQueue();
    const auto own = makeObject<TaskQueue>(TaskQueue::Main);
    EXPECT_TRUE(System::deinitialize());
    EXPECT_EQ(pool->getThreadCount(), 0);
    bool hasRun = false;
    queue->pushTask(makeTask([&] { hasRun = true; }));
    own->pushTask(makeTask([&] { hasRun = true; }));
    EXPECT_TRUE(System::initialize());
    EXPECT_EQ(System::getThreadPool(), ThreadPool::current());
    EXPECT_EQ(System::getMainPool(), MainPool::current());
    EXPECT_EQ(System::getScheduler(), Scheduler::current());
    System::processEvents();
    EXPECT_TRUE(!hasRun && System::deinitialize());
}

// ---- What it hands out.

TEST_F(SystemTest, TimesAndNames) {
    ManualClock clock((int64_t{1} << 32) + 5, 1709211909042000);
    EXPECT_TRUE(System::getTime() == 5 && System::getTime64() == (int64_t{1} << 32) + 5);
    EXPECT_EQ(System::getUTCText(System::getUTC()), "2024-02-29T13:05:09.042Z");
    const int64_t unique = System::getUniqueUTC();
    EXPECT_LT(unique, System::getUniqueUTC());
    EXPECT_GE(System::getHardwareConcurrency(), 1u);

    MemoryStore store(true);
    GUIDDomainDB domain{Item(&store)};
    domain.initializeDomain(GUIDDomain(GUID(0x5A, 0, 0, 0), 8), 8, 16);
    System::setGUIDDomainDB(&domain);
    EXPECT_EQ(System::createGUID().getWord(0) & 0xFF, 0x5Au);
    EXPECT_TRUE(System::deinitialize() && GUIDDomainDB::current() == nullptr);
    std::set<GUID> names;
    for (int i = 0; i < 100; ++i) names.insert(System::createGUID());
    EXPECT_EQ(names.size(), 100u);
}

TEST_F(SystemTest, BuffersAreLoadedFromItsResources) {
    const support::TemporaryFolder folder;
    folder.write("picture", "bytes");
    support::LogLines log;
    Buffer bytes;
    EXPECT_FALSE(bytes.loadFromResource("picture", true) || bytes.loadFromResource("picture", false));
    EXPECT_EQ(log.takeOne(), "cant fetch resource 'picture'");
    EXPECT_TRUE(System::addResourceDirectory(folder.utf8("").c_str()) && bytes.loadFromResource("picture", false));
    EXPECT_TRUE(bytes.getSize() == 5u && System::deinitialize() && !bytes.loadFromResource("picture", true));
    EXPECT_TRUE(bytes.empty() && !bytes.loadFromResource(nullptr, false));
    EXPECT_EQ(log.takeOne(), "cant fetch resource ''");
}

TEST_F(SystemTest, ACaughtInterruptIsSeenAndASecondOneEndsTheProcess) {
    System::setHitSIGINT(true);
    EXPECT_TRUE(System::getHitSIGINT());
    System::setHitSIGINT(false);
    System::catchInterrupts();
    if (!support::raiseInterrupt()) GTEST_SKIP() << "an interrupt would reach other processes, too";
    EXPECT_TRUE(System::getHitSIGINT());
    const auto isFailure = [](int status) { return status != 0; };
    const auto interrupt = [] { support::raiseInterrupt(), std::exit(0); };
    EXPECT_EXIT(interrupt(), isFailure, "");
    System::setHitSIGINT(false);
    EXPECT_TRUE(System::deinitialize());
    EXPECT_EXIT(interrupt(), isFailure, "");
}

} // namespace
} // namespace kiv
