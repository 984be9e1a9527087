// Hunts: workers that are started too early, too often or never again, packets lost, doubled or out of order around a
// worker's death, ends that wait for themselves, hooks called after the end, and what dead workers leave open.
// In most tests the steps are driven by hand and time is set; the others have a real loop on a thread of a pool.
#include "kiv/process/AsyncSupervisor.h"

#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/logging/Trace.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/process/Children.h"
#include "tests/process/child/Jobs.h"
#include "tests/support/LogLines.h"
#include "tests/support/ProgramState.h"
#include "tests/support/TemporaryFolder.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <map>
#include <set>
#include <stdexcept>

namespace kiv {
namespace {

using support::LogLines;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;

constexpr char quit[] = "subprocess quit unexpectedly, restarting";
constexpr std::chrono::seconds watchdog(100);
using support::handlesOfLocks;

// The low bits of all random numbers are these.
class FixedRandom : public Random {
public:
    explicit FixedRandom(unsigned value) : Random(0), m_value(value), m_previous(exchangeCurrent(this)) {}
    ~FixedRandom() override { exchangeCurrent(m_previous); }
    uint64_t randomUInt64() override { return uint64_t{m_value} << 32; }

private:
    const unsigned m_value;
    Random* const m_previous;
};

// Writes down what happens to it, and does in each hook what a test wants.
class Supervisor : public AsyncSupervisor {
public:
    explicit Supervisor(const std::string& path = support::childProgram) : AsyncSupervisor(path.c_str()) {}
    ~Supervisor() override { terminate(); }
    using AsyncSupervisor::start;
    using AsyncSupervisor::tick;

    void enqueueJob(uint32_t job) { enqueuePacket(support::requestOf(job).get()); }
    // Steps by hand until so.
    bool tickUntil(const std::function<bool()>& isDone) {
        const auto end = std::chrono::steady_clock::now() + watchdog;
        while (!isDone() && std::chrono::steady_clock::now() < end) {
            tick();
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        return isDone();
    }
    // For the real loop.
    bool waitUntil(const std::function<bool()>& isDone) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, watchdog, isDone);
    }

    std::function<void()> atStart, atQuit, atPacket;
    std::atomic<int> started{0}, died{0};
    std::vector<uint32_t> jobs; // answered
    std::set<int64_t> workers;

protected:
    void onProcessStarted() override {
        note([&] { ++started; });
        if (atStart) atStart();
    }
    void onProcessQuit() override {
        note([&] { ++died; });
        if (atQuit) atQuit();
    }
    void onPacket(Packet* packet) override {
        const auto answer = support::readAnswer(*packet);
        ASSERT_TRUE(answer.has_value());
        note([&] {
            jobs.push_back(answer->job);
            workers.insert(answer->processId);
        });
        if (atPacket) atPacket();
    }
    void note(const std::function<void()>& change) {
        const std::lock_guard lock(m_mutex);
        change();
        m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
};

struct AsyncSupervisorTest : testing::Test {
    AsyncSupervisorTest() { setWorker("0"); }
    ~AsyncSupervisorTest() override { setWorker(nullptr); }
    static void setWorker(const char* seed) { support::setEnvironment("KIV_TEST_WORKER", seed); }

    ManualClock clock{0xFFFFFFFF - 6000}; // wraps in most tests
    const SmartPointer<ThreadPool> pool = makeObject<ThreadPool>();
    LogLines log;

    // The log without what Process tells of each start.
    std::vector<std::string> takeLog() {
        std::vector<std::string> lines = log.take();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("[VERBOSE] executing"); });
        return lines;
    }
};

// ---- When workers are started.

TEST_F(AsyncSupervisorTest, AMissingBinaryIsToldOnceAndNeverLookedForAgain) {
    const support::TemporaryFolder folder;
    for (const std::string& path : {folder.utf8("worker"), folder.utf8(""), folder.utf8("\xFF"), std::string()}) {
        Supervisor supervisor(path);
        const SmartPointer<Packet> packet = support::requestOf(1);
        supervisor.enqueuePacket(packet.get());
        const auto seconds = [&](int count) {
            for (int i = 0; i < count; ++i) clock.advance(1000), supervisor.tick();
        };
        seconds(5);
        std::filesystem::copy_file(std::filesystem::u8path(support::childProgram), folder.path("worker"),
                                   std::filesystem::copy_options::skip_existing);
        seconds(20);
        EXPECT_EQ(supervisor.started, 0);
        EXPECT_EQ(packet->getReferenceCount(), 1); // what nobody will get is not kept
        EXPECT_EQ(takeLog(), path.empty() ? std::vector<std::string>()
                                          : std::vector{"worker binary not found under path: " + path});
        std::filesystem::remove(folder.path("worker"));
    }
}

TEST_F(AsyncSupervisorTest, AWorkerBelowTheCurrentFolderIsNotStarted) {
    const std::filesystem::path path = std::filesystem::relative(std::filesystem::u8path(support::childProgram));
    ASSERT_TRUE(path.is_relative() && std::filesystem::is_regular_file(path));
    const std::string relative = path.string();
    Supervisor supervisor(relative);
    for (int i = 0; i < 20; ++i) clock.advance(1000), supervisor.tick();
    EXPECT_EQ(supervisor.started, 0);
    EXPECT_THAT(takeLog(), ElementsAre("worker binary not started, its path is not absolute: " + relative));
}

TEST_F(AsyncSupervisorTest, TheFirstStartIsDelayedByUpTo2047Milliseconds) {
    for (const unsigned delay : {0u, 1u, 1999u, 2000u, 2047u}) {
        const FixedRandom random(delay | 0xABC00800);
        Supervisor supervisor("/no/such/worker");
        unsigned waited = 0;
        for (supervisor.tick(); takeLog().empty() && waited < 3000; ++waited) clock.advance(1), supervisor.tick();
        EXPECT_EQ(waited, delay);
    }
}

TEST_F(AsyncSupervisorTest, AWorkerThatCannotStartIsTriedEveryTwoSeconds) {
    const support::TemporaryFolder folder;
    folder.write("worker.exe", "no program");
    Supervisor supervisor(folder.utf8("worker.exe"));
    for (int i = 0; i < 2000; ++i) clock.advance(10), supervisor.tick(); // 20 seconds
    EXPECT_EQ(supervisor.started + supervisor.died, 0);
    EXPECT_THAT(takeLog().size(), AllOf(Ge(9u), Le(10u)));
}

TEST_F(AsyncSupervisorTest, AWorkerThatDiesAtOnceIsStartedEveryTwoSeconds) {
    setWorker(nullptr);
    Supervisor supervisor;
    uint32_t lastStart = Clock::current().getTime();
    supervisor.atStart = [&] {
        // It is alive for a step or two, in which the clock stands still.
        EXPECT_TRUE(supervisor.started == 1 || Clock::current().getTime() - lastStart == 2000);
        lastStart = Clock::current().getTime();
    };
    while (supervisor.started < 8) {
        clock.advance(10);
        supervisor.tick();
        ASSERT_TRUE(supervisor.tickUntil([&] { return supervisor.died == supervisor.started; }));
    }
    EXPECT_EQ(takeLog(), std::vector<std::string>(8, quit));
}

// ---- What passes through.

TEST_F(AsyncSupervisorTest, PacketsArriveInOrderFromTheHookOfTheStartOn) {
    Supervisor supervisor;
    supervisor.enqueueJob(100); // discarded: there is no worker
    supervisor.atStart = [&] { supervisor.enqueueJob(0); };
    clock.advance(2048);
    supervisor.tick();
    std::vector<uint32_t> expected{0};
    for (uint32_t job = 1; job < 1000; ++job) supervisor.enqueueJob(job), expected.push_back(job);
    EXPECT_TRUE(supervisor.tickUntil([&] { return supervisor.jobs.size() == 1000; }));
    EXPECT_EQ(supervisor.jobs, expected);
    EXPECT_THAT(takeLog(), ElementsAre());
}

TEST_F(AsyncSupervisorTest, WhatADeadWorkerHasSaidArrivesBeforeItsEndIsTold) {
    setWorker("burst");
    Supervisor supervisor;
    size_t arrived = 0;
    supervisor.atQuit = [&] { arrived = supervisor.jobs.size(); };
    clock.advance(2048);
    supervisor.tick();
    EXPECT_TRUE(supervisor.tickUntil([&] { return supervisor.died == 1; }));
    EXPECT_EQ(arrived, 3000u);
    EXPECT_TRUE(std::is_sorted(supervisor.jobs.begin(), supervisor.jobs.end()));
}

TEST_F(AsyncSupervisorTest, TheLoopPassesPacketsToAndFro) {
    Supervisor supervisor;
    supervisor.atStart = supervisor.atPacket = [&] {
        if (supervisor.jobs.size() < 500) supervisor.enqueueJob(static_cast<uint32_t>(supervisor.jobs.size()));
    };
    clock.advance(2048);
    supervisor.start();
    supervisor.start(); // one is enough
    EXPECT_TRUE(supervisor.waitUntil([&] { return supervisor.jobs.size() == 500; }));
    supervisor.terminate();
    EXPECT_EQ(supervisor.started, 1);
}

// A host that sends again what a dead worker has not answered.
class Host : public Supervisor {
public:
    explicit Host(unsigned dyingWorkers) : m_dyingWorkers(dyingWorkers) {}
    ~Host() override { terminate(); }

    // Returns once not too much waits.
    bool submit(uint32_t job) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, watchdog, [&] { return m_open.size() < 24; })) return false;
        m_open.insert(job);
        if (m_isUp) enqueueJob(job);
        return true;
    }
    bool hasAllDied() const { return died >= static_cast<int>(m_dyingWorkers); }
    bool finish() {
        return waitUntil([&] { return m_open.empty() && hasAllDied(); });
    }

    unsigned surplus = 0; // answers to what was not asked, or was answered before
    std::function<void()> later;

private:
    void onProcessStarted() override {
        Supervisor::onProcessStarted();
        const std::lock_guard lock(m_mutex);
        m_isUp = true;
        for (const uint32_t job : m_open) enqueueJob(job);
    }
    void onProcessQuit() override {
        Supervisor::onProcessQuit();
        const std::lock_guard lock(m_mutex);
        m_isUp = false;
        later();
    }
    void onPacket(Packet* packet) override {
        const auto answer = support::readAnswer(*packet);
        ASSERT_TRUE(answer.has_value());
        note([&] {
            if (m_open.erase(answer->job) == 0) ++surplus;
        });
    }

    const unsigned m_dyingWorkers;
    std::set<uint32_t> m_open;
    bool m_isUp = false;
};

TEST_F(AsyncSupervisorTest, NothingIsLostOrDoubledThough500WorkersDie) {
    const unsigned deaths = support::isWine() ? 100 : 500, firstSeed = std::random_device()() | 1;
    SCOPED_TRACE("seeds from " + std::to_string(firstSeed) + " on");
    logging::g_hideVerboseOutputInConsole = true;
    Host host(deaths);
    setWorker(std::to_string(firstSeed).c_str());
    size_t handles = 0;
    host.later = [&] {
        const auto died = static_cast<unsigned>(host.died.load());
        if (died == 20) handles = support::countOpenHandles();
        if (died == deaths) {
            EXPECT_LE(support::countOpenHandles(), handles + handlesOfLocks);
        }
        setWorker(died < deaths ? std::to_string(firstSeed + died).c_str() : "0");
        clock.advance(2000);
    };
    clock.advance(2048);
    host.start();
    std::atomic<uint32_t> nextJob{0};
    const auto submitAll = [&] {
        while (!host.hasAllDied() && host.submit(nextJob++)) {
        }
    };
    std::thread other(submitAll);
    submitAll();
    other.join();
    EXPECT_TRUE(host.finish());
    host.terminate();
    logging::g_hideVerboseOutputInConsole = false;
    EXPECT_EQ(host.surplus, 0u);
    EXPECT_EQ(host.died, static_cast<int>(deaths));
    EXPECT_EQ(host.started, host.died + 1);
    EXPECT_GE(nextJob, deaths);
}

// ---- The end.

TEST_F(AsyncSupervisorTest, AfterTerminateItMayStartAgain) {
    Supervisor supervisor;
    supervisor.atStart = [&] { supervisor.enqueueJob(7); };
    size_t handles = 0;
    const size_t rounds = 3 + handlesOfLocks;
    for (size_t round = 1; round <= rounds; ++round) {
        clock.advance(2048);
        supervisor.start();
        EXPECT_TRUE(supervisor.waitUntil([&] { return supervisor.jobs.size() == round; }));
        supervisor.terminate();
        supervisor.terminate();
        if (round == 1) handles = support::countOpenHandles();
        EXPECT_LE(support::countOpenHandles(), handles + handlesOfLocks);
        EXPECT_EQ(supervisor.workers.size(), round); // another one each time
    }
    for (const int64_t worker : supervisor.workers)
        EXPECT_TRUE(supervisor.tickUntil([&] { return !Process::processExists(worker); }));
    EXPECT_EQ(supervisor.died, 0);
    clock.advance(5000);
    supervisor.tick(); // over
    EXPECT_EQ(supervisor.started, static_cast<int>(rounds));
}

TEST_F(AsyncSupervisorTest, TerminateInAHookEndsTheWorkerAndTheHooks) {
    for (const bool isInStart : {true, false}) {
        Supervisor supervisor;
        const auto end = [&] { supervisor.terminate(); };
        supervisor.atStart = [&] {
            for (uint32_t job = 0; job < 50; ++job) supervisor.enqueueJob(job);
            if (isInStart) end();
        };
        supervisor.atPacket = end;
        clock.advance(2048);
        if (isInStart)
            supervisor.tick();
        else
            EXPECT_TRUE(supervisor.tickUntil([&] { return !supervisor.jobs.empty(); }));
        clock.advance(5000);
        supervisor.tick();
        EXPECT_EQ(supervisor.started, 1);
        EXPECT_EQ(supervisor.jobs.size(), isInStart ? 0u : 1u);
        EXPECT_EQ(supervisor.died, 0);
    }
}

TEST_F(AsyncSupervisorTest, AnyThreadMayEndWhatAnotherOneDrivesByHand) {
    for (int round = 0; round < 10; ++round) {
        Supervisor supervisor;
        supervisor.atStart = [&] { supervisor.tick(); }; // does nothing
        clock.advance(2048);
        std::jthread driver([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) supervisor.tick();
        });
        EXPECT_TRUE(supervisor.waitUntil([&] { return supervisor.started == 1; }));
        std::jthread other([&] { supervisor.terminate(); });
        supervisor.terminate();
    }
}

TEST_F(AsyncSupervisorTest, AHookOfTheLoopMayEndItAndBeginAnother) {
    Supervisor supervisor;
    supervisor.atStart = [&] { supervisor.enqueueJob(7); };
    supervisor.atPacket = [&] {
        supervisor.terminate();
        if (supervisor.started < 5) supervisor.start();
        clock.advance(2000);
    };
    clock.advance(2048);
    supervisor.start();
    EXPECT_TRUE(supervisor.waitUntil([&] { return supervisor.jobs.size() == 5; }));
    supervisor.terminate();
    EXPECT_EQ(supervisor.workers.size(), 5u);
    EXPECT_EQ(supervisor.died, 0);
}

TEST_F(AsyncSupervisorTest, AHookMayDestroyItsSupervisor) {
    for (int round = 0; round < 3; ++round) {
        const bool hasLoop = round == 2;
        const size_t handles = support::countOpenHandles();
        auto* supervisor = new Supervisor;
        std::atomic<bool> isGone{false};
        supervisor->atStart = [&, supervisor] { supervisor->enqueueJob(7); };
        supervisor->atPacket = [&, supervisor] {
            std::atomic<bool>& told = isGone; // this goes, too
            delete supervisor;
            told = true;
        };
        clock.advance(2048);
        if (hasLoop) supervisor->start();
        for (const auto end = std::chrono::steady_clock::now() + watchdog;
             !isGone && std::chrono::steady_clock::now() < end; std::this_thread::yield())
            if (!hasLoop) supervisor->tick();
        ASSERT_TRUE(isGone);
        // The first child costs handles for good on some systems.
        EXPECT_TRUE(round != 1 || support::countOpenHandles() <= handles);
    }
}

TEST_F(AsyncSupervisorTest, AHookThatThrowsDoesNotEndTheWork) {
    setWorker(nullptr);
    Supervisor supervisor;
    supervisor.atStart = [] { throw std::runtime_error("not today"); };
    supervisor.atQuit = [] { throw 1; };
    for (int worker = 1; worker <= 2; ++worker) {
        clock.advance(2048);
        EXPECT_TRUE(supervisor.tickUntil([&] { return supervisor.died == worker; }));
    }
    EXPECT_EQ(supervisor.started, 2);
    EXPECT_EQ(takeLog().size(), 6u);
}

TEST_F(AsyncSupervisorTest, OneThatIsForgottenToBeEndedIsToldOf) {
    struct Careless : AsyncSupervisor {
        Careless() : AsyncSupervisor("") { start(); }
        void onProcessStarted() override {}
        void onProcessQuit() override {}
        void onPacket(Packet*) override {}
    };
    static_cast<void>(makeObject<Careless>());
    EXPECT_THAT(takeLog(), ElementsAre("[ASSERT] [SUPERVISOR] destroyed without terminate()"));
}

TEST_F(AsyncSupervisorTest, AllAreEndedAtOnce) {
    clock.advance(2048);
    Supervisor byHand, working, idle("/no/such/worker"), never;
    byHand.atStart = [&] { byHand.enqueueJob(7); };
    clock.advance(2048);
    EXPECT_TRUE(byHand.tickUntil([&] { return !byHand.workers.empty(); }));
    working.start();
    idle.start();
    EXPECT_TRUE(working.waitUntil([&] { return working.started == 1; }));
    AsyncSupervisor::terminateAll();
    const auto areThreadsIdle = [&] { return pool->getIdleCount() == pool->getThreadCount(); };
    EXPECT_TRUE(never.tickUntil(areThreadsIdle));
    EXPECT_EQ(never.started, 0);
    EXPECT_TRUE(byHand.tickUntil([&] { return !Process::processExists(*byHand.workers.begin()); }));
    clock.advance(5000);
    working.start(); // as after terminate()
    EXPECT_TRUE(working.waitUntil([&] { return working.started == 2; }));
}

TEST_F(AsyncSupervisorTest, LivesOfWorkersAreTraced) {
    setWorker(nullptr);
    const support::TemporaryFolder folder;
    Supervisor supervisor;
    Trace::start();
    for (int worker = 1; worker <= 2; ++worker) {
        clock.advance(2048);
        EXPECT_TRUE(supervisor.tickUntil([&] { return supervisor.died == worker; }));
    }
    Trace::stop();
    EXPECT_EQ(Trace::getNumberOfEvents(), 4u);
    EXPECT_TRUE(Trace::writeTo(folder.utf8("trace")));
    EXPECT_THAT(folder.read("trace"), testing::HasSubstr("\"worker\""));
}

} // namespace
} // namespace kiv
