// Hunts: lost or doubled runs, two runs of a serial queue at once or out of order, runs that overtake a barrier,
// references, weights and runners that are left over, threads that hang.
#include "TaskHelpers.h"
#include "kiv/tasks/MainPool.h"
#include "kiv/tasks/Parallel.h"
#include "kiv/tasks/ThreadPool.h"

#include <algorithm>
#include <array>
#include <bit>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

namespace kiv {
namespace {

using Type = TaskQueue::Type;

// The seed decides what every thread and task does; the system, in which order.
class Choices {
public:
    explicit Choices(uint64_t seed) : m_random(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() >> 33) % limit; }
    bool once(unsigned in) { return below(in) == 0; }
    uint64_t seed() { return m_random(); }
    void dawdle() {
        const unsigned kind = below(16);
        if (kind == 0) std::this_thread::yield();
        if (kind > 3) return;
        for (unsigned i = 0; i < 20 * kind; ++i) KIV_PAUSE();
    }

private:
    std::mt19937_64 m_random;
};

constexpr unsigned actors = 4; // threads that use the queues; the first is the main thread
constexpr unsigned noActor = ~0u;

// What is known of one queue. Tasks share it, it outlives the queue.
struct Ledger {
    static constexpr unsigned maximalGroups = 64;
    struct Pusher { // one thread's view
        uint32_t group = 0;
        std::array<std::atomic<int>, maximalGroups> unfinished{}; // runs by group; a barrier begins a new one
        // Of the last run in a serial queue; not atomic, for the thread sanitizer to see two at once.
        uint64_t lastPush = 0;
        uint32_t lastIndex = 0;
    };

    explicit Ledger(bool serial) : isSerial(serial) {}

    const bool isSerial;
    std::atomic<bool> mayDrop{false};
    std::atomic<int> inside{0};
    std::array<Pusher, actors> pushers;
};

struct Place { // where a queue is found, until another one takes its place
    std::mutex mutex;
    SmartPointer<TaskQueue> queue;
    std::shared_ptr<Ledger> ledger;
};

struct Kernel : Parallel::Kernel {
    void executePart(unsigned) override { ++runs; }
    std::atomic<unsigned> runs{0};
};

class World {
public:
    // Queues in the order in which their tasks may wait for each other: for later ones only.
    static constexpr Type types[] = {Type::Main,
                                     Type::Serial,
                                     Type::GlobalParallel,
                                     Type::Serial | Type::HighPriority,
                                     Type::Parallel | Type::IO,
                                     Type::GlobalDeleteIO,
                                     Type::GlobalParallel};
    static constexpr unsigned count = std::size(types);

    World() {
        for (unsigned i = 0; i < count; ++i) renew(i);
    }

    void fault(const char* text) {
        const char* none = nullptr;
        firstFault.compare_exchange_strong(none, text);
    }
    std::pair<SmartPointer<TaskQueue>, std::shared_ptr<Ledger>> at(unsigned i) {
        const std::lock_guard lock(places[i].mutex);
        return {places[i].queue, places[i].ledger};
    }
    // The queue before dies with the last who still uses it, maybe here.
    void renew(unsigned i) {
        auto queue = makeObject<TaskQueue>(types[i]);
        auto ledger = std::make_shared<Ledger>(!queue->isParallelQueue());
        const std::lock_guard lock(places[i].mutex);
        if (places[i].ledger) places[i].ledger->mayDrop = true;
        queue.swap(places[i].queue);
        ledger.swap(places[i].ledger);
    }

    std::array<Place, count> places;
    Parallel loops;
    std::atomic<const char*> firstFault{nullptr};
    std::atomic<uint64_t> pushed{0}, ran{0}, dropped{0};
    std::atomic<int64_t> tasks{0};
    std::atomic<unsigned> pumps{0}; // in progress, one in the other
};

// The runs of one push.
class StressTask : public TaskQueue::Task {
public:
    StressTask(World& world, unsigned place, std::shared_ptr<Ledger> ledger, unsigned runs, unsigned pusher,
               uint64_t number, uint64_t seed)
        : m_world(world), m_place(place), m_ledger(std::move(ledger)), m_runs(runs), m_pusher(pusher), m_number(number),
          m_seed(seed) {
        if (m_pusher != noActor) m_group = m_ledger->pushers[m_pusher].group;
        count(static_cast<int>(runs));
        m_world.pushed += runs;
        ++m_world.tasks;
    }
    ~StressTask() override {
        const auto left = m_runs - static_cast<unsigned>(std::popcount(m_begun.load()));
        if (left != 0 && !m_ledger->mayDrop) m_world.fault("runs are lost");
        count(-static_cast<int>(left));
        m_world.dropped += left;
        --m_world.tasks;
    }

    void run(TaskContext& context) override {
        const uint64_t bit = uint64_t{1} << context.getIndex();
        if (context.getIndex() >= m_runs || (m_begun.fetch_or(bit) & bit) != 0) m_world.fault("a run is doubled");
        if (m_ledger->inside++ != 0 && m_ledger->isSerial) m_world.fault("a serial queue runs two tasks at once");
        checkOrder(context.getIndex());
        behave(context);
        --m_ledger->inside;
        ++m_world.ran;
        count(-1);
    }

private:
    void count(int runs) {
        if (m_pusher != noActor) m_ledger->pushers[m_pusher].unfinished[m_group] += runs;
    }
    void checkOrder(uint32_t index) {
        if (m_pusher == noActor) return;
        Ledger::Pusher& pusher = m_ledger->pushers[m_pusher];
        for (uint32_t group = 0; group < m_group; ++group) {
            if (pusher.unfinished[group] != 0) m_world.fault("a run overtakes a barrier");
        }
        if (!m_ledger->isSerial) return;
        const bool isNext = m_number > pusher.lastPush || (m_number == pusher.lastPush && index < pusher.lastIndex);
        if (!isNext) m_world.fault("a serial queue changes the order");
        pusher.lastPush = m_number;
        pusher.lastIndex = index;
    }
    void behave(TaskContext& context);

    World& m_world;
    const unsigned m_place;
    const std::shared_ptr<Ledger> m_ledger;
    const unsigned m_runs;
    const unsigned m_pusher;
    const uint64_t m_number;
    const uint64_t m_seed;
    uint32_t m_group = 0;
    std::atomic<uint64_t> m_begun{0}; // a bit a run
};

void push(World& world, unsigned place, unsigned pusher, uint64_t number, Choices& choices) {
    const auto [queue, ledger] = world.at(place);
    const unsigned runs = choices.once(2) ? 1 : 1 + choices.below(choices.once(8) ? 60 : 6);
    auto* task = new StressTask(world, place, ledger, runs, pusher, number, choices.seed());
    queue->pushTaskN(runs, task, choices.below(3) * 0x40000001);
}

void StressTask::behave(TaskContext& context) {
    Choices choices(m_seed + context.getIndex());
    choices.dawdle();
    // Of a place before the own one a task does not even hold a queue: destroying it would be waiting for it.
    const unsigned later = m_place + choices.below(World::count - m_place);
    switch (choices.below(64)) {
    case 0:
    case 1:
    case 2:
        if (m_pusher != noActor) push(m_world, later, noActor, 0, choices);
        break;
    case 3:
        context.changeWorkload(choices.below(1000));
        break;
    case 4: {
        m_ledger->mayDrop = true;
        context.getQueue()->abort();
        break;
    }
    case 5:
        if (later != m_place) m_world.at(later).first->wait();
        break;
    case 6: {
        Kernel kernel;
        m_world.loops.execute(kernel);
        break;
    }
    case 7: {
        const auto [queue, ledger] = m_world.at(later);
        if (later == m_place) break;
        ledger->mayDrop = true;
        queue->abort();
        break;
    }
    case 8:
        if (later != m_place) m_world.renew(later);
        break;
    case 9:
        if (m_place == 0 && m_world.pumps.fetch_add(1) < 3) MainPool::current()->processEvents();
        if (m_place == 0) --m_world.pumps;
        break;
    default:
        break;
    }
}

// One of the threads that use the queues.
class Actor {
public:
    Actor(World& world, unsigned index, uint64_t seed) : m_world(world), m_index(index), m_choices(seed) {}

    void act(unsigned steps) {
        for (unsigned i = 0; i < steps; ++i) {
            step(m_choices.below(World::count));
            m_choices.dawdle();
        }
    }

private:
    void step(unsigned place) {
        const bool isMain = place == 0;
        if (m_index == 0 && m_choices.once(4)) MainPool::current()->processEvents();
        const unsigned choice = m_choices.below(100);
        if (choice < 70) return push(m_world, place, m_index, ++m_number, m_choices);
        const auto [queue, ledger] = m_world.at(place);
        if (choice < 82) return pushBarrier(*queue, *ledger);
        if (choice < 88) return look(*queue);
        if (isMain && m_index != 0) return;
        if (choice < 91) return abort(*queue, *ledger);
        if (isMain) return;
        if (choice < 93) return m_world.renew(place);
        if (choice < 95) return queue->wait();
        queue->pause();
        for (unsigned i = m_choices.below(4); i > 0; --i) push(m_world, place, m_index, ++m_number, m_choices);
        pushBarrier(*queue, *ledger);
        push(m_world, place, m_index, ++m_number, m_choices);
        queue->resume();
    }
    void pushBarrier(TaskQueue& queue, Ledger& ledger) {
        queue.pushBarrier();
        Ledger::Pusher& own = ledger.pushers[m_index];
        if (own.group + 1 < Ledger::maximalGroups) ++own.group;
    }
    void look(TaskQueue& queue) {
        queue.getWorkload();
        queue.getNumberOfQueuedTasks();
        queue.empty();
        if (!queue.isMainQueue()) queue.resume();
    }
    void abort(TaskQueue& queue, Ledger& ledger) {
        ledger.mayDrop = true;
        queue.abort();
    }

    World& m_world;
    const unsigned m_index;
    Choices m_choices;
    uint64_t m_number = 0;
};

// Returns how many runs there were.
uint64_t playRound(uint64_t seed) {
    const std::string name = "KIV_STRESS_SEED=" + std::to_string(seed);
    const support::Watchdog watchdog(name);
    auto pool = makeObject<ThreadPool>();
    auto mainPool = makeObject<MainPool>();
    World world;
    Choices seeds(seed);
    {
        std::vector<std::jthread> threads;
        const uint64_t mainSeed = seeds.seed();
        for (unsigned i = 1; i < actors; ++i) {
            threads.emplace_back([&world, i, own = seeds.seed()] { Actor(world, i, own).act(300); });
        }
        Actor(world, 0, mainSeed).act(300);
    }
    const auto isOver = [&] { // nor do the last runs of replaced queues push any more
        mainPool->processEvents();
        for (unsigned i = 1; i < World::count; ++i) world.at(i).first->resume();
        return world.tasks == 0;
    };
    support::waitUntil(isOver, name.c_str());
    for (unsigned i = 1; i < World::count; ++i) {
        const SmartPointer<TaskQueue> queue = world.at(i).first;
        do {
            queue->wait();
        } while (!queue->empty());
    }
    for (unsigned i = 0; i < World::count; ++i) {
        EXPECT_TRUE(isClean(*world.places[i].queue)) << name << ", place " << i;
        world.places[i].queue = nullptr;
    }
    pool = nullptr; // ends the runs of queues that were destroyed by them
    EXPECT_TRUE(world.tasks == 0 && world.ran + world.dropped == world.pushed)
        << name << ": " << world.tasks << " tasks left, " << world.ran << " + " << world.dropped << " of "
        << world.pushed << " runs";
    if (world.firstFault) ADD_FAILURE() << name << ": " << world.firstFault;
    return world.ran;
}

// KIV_STRESS_SEED plays that round again, KIV_STRESS_ROUNDS times.
TEST(TaskStress, KeepsItsPromises) {
    const char* const seed = std::getenv("KIV_STRESS_SEED");
    const char* const rounds = std::getenv("KIV_STRESS_ROUNDS");
    const uint64_t first = seed ? std::stoull(seed) : 1;
    uint64_t runs = 0;
    for (uint64_t i = 0; i < (rounds ? std::stoull(rounds) : 100) && !HasFailure(); ++i) {
        runs += playRound(seed ? first : first + i);
    }
    std::printf("%llu runs\n", static_cast<unsigned long long>(runs));
    EXPECT_TRUE(rounds || HasFailure() || runs > 200000);
}

} // namespace
} // namespace kiv
