#pragma once

#include "Workload.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <thread>

// The races, for contestants of this form; what one does not have it takes no part in. All return when everything asked
// for has been done.
//     static constexpr const char* name = "fast";
//     void serial(size_t tasks)           countRun() that often, pushed one by one to a queue that keeps the order
//     void parallel(size_t tasks)         the same, on all threads
//     void countedSerial(size_t runs)     the same by one push
//     void countedParallel(size_t runs)
//     uint32_t sum()                      of the integers, on all threads
//     void loop()                         as many empty parts as there are processors
//     void pingPong(size_t rounds)        another thread does countRun() and the caller learns of it, in turn
//     void volley(size_t rounds)          two tasks, each of a serial queue of its own, push each other in turn; both
//                                         do countRun()
//     void eight(size_t rounds)           eight countRun() in parallel, then a barrier, and the caller waits
//     void eightAhead(size_t rounds)      the same, but the caller waits for the last round only
namespace bench {

constexpr size_t million = 1'000'000;

template <class C>
C& contestant() {
    static C& instance = *new C; // its threads would outlive a static object
    return instance;
}

inline void expectRuns(benchmark::State& state, uint64_t before, uint64_t expected) {
    const uint64_t runs = runsCounted() - before;
    if (runs != expected) state.SkipWithError(("runs: " + std::to_string(runs)).c_str());
}

// One that takes a number of rounds and counts so many runs in each.
template <class C>
void batchRace(benchmark::State& state, void (C::*race)(size_t), size_t batch, unsigned runs) {
    C& one = contestant<C>();
    (one.*race)(batch / 100); // threads start
    const uint64_t before = runsCounted();
    uint64_t rounds = 0;
    while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(batch))) {
        (one.*race)(batch);
        rounds += batch;
    }
    expectRuns(state, before, rounds * runs);
}

template <class C>
void sumRace(benchmark::State& state) {
    C& one = contestant<C>();
    static const uint32_t expected = sumOfPart(0, 1);
    for (auto _ : state) {
        if (one.sum() != expected) state.SkipWithError("another sum");
    }
}

template <class C>
void loopRace(benchmark::State& state) {
    C& one = contestant<C>();
    one.loop();
    for (auto _ : state) one.loop();
}

// What a pool costs that has next to nothing to do: the processor time of a process that pushes a task a millisecond.
template <class C>
void quietRace(benchmark::State& state) {
    C& one = contestant<C>();
    one.serial(1);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    constexpr size_t batch = 100;
    while (state.KeepRunningBatch(batch)) {
        const double before = processSeconds();
        for (size_t i = 0; i < batch; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            one.serial(1);
        }
        state.SetIterationTime(processSeconds() - before);
    }
}

template <class C, class Race, class... Arguments>
benchmark::internal::Benchmark* add(const char* item, Race race, Arguments... arguments) {
    const std::string name = std::string(item) + "/" + C::name;
    return benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { race(state, arguments...); });
}

template <class C>
bool addAll() {
    const auto addBatch = [](const char* item, void (C::*race)(size_t), size_t batch, unsigned runs) {
        add<C>(item, batchRace<C>, race, batch, runs)->UseRealTime();
    };
    if constexpr (requires { &C::serial; }) {
        addBatch("serial-queue", &C::serial, million, 1);
        add<C>("cpu-of-a-task-a-ms", quietRace<C>)->UseManualTime()->Iterations(400);
    }
    if constexpr (requires { &C::parallel; }) addBatch("parallel-queue", &C::parallel, million, 1);
    if constexpr (requires { &C::countedSerial; }) addBatch("counted-serial", &C::countedSerial, million, 1);
    if constexpr (requires { &C::countedParallel; }) addBatch("counted-parallel", &C::countedParallel, million, 1);
    if constexpr (requires { &C::sum; }) add<C>("sum-10M", sumRace<C>)->UseRealTime();
    if constexpr (requires { &C::loop; }) add<C>("empty-loop", loopRace<C>)->UseRealTime();
    if constexpr (requires { &C::pingPong; }) addBatch("ping-pong", &C::pingPong, 10'000, 1);
    if constexpr (requires { &C::volley; }) addBatch("ping-pong-queues", &C::volley, 10'000, 2);
    if constexpr (requires { &C::eight; }) addBatch("eight-barrier-wait", &C::eight, 1000, 8);
    if constexpr (requires { &C::eightAhead; }) addBatch("eight-barrier", &C::eightAhead, 1000, 8);
    return true;
}

} // namespace bench
