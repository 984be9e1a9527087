#pragma once

#include "Work.h"
#include "bench/value/Record.h"

#include <benchmark/benchmark.h>

#include <string>

// The races, for contestants of this form, of which there is one in the program:
//     static constexpr const char* name = "fast";
//     void select(const char* loop)               a function of the script
//     int64_t run(int64_t count)                  calls it
//     int64_t callScript(int64_t a, int64_t b)    calls scriptAdd, by a handle
//     void makeTable()                            the record as a table of the script
//     bool takeTable()                            back from there; whether all is right
namespace bench {

template <class C>
C& contestant() {
    static C& only = *new C;
    return only;
}

template <class C>
void loopRace(benchmark::State& state, const Loop& loop) {
    C& me = contestant<C>();
    me.select(loop.name);
    while (state.KeepRunningBatch(loopCount)) check(me.run(loopCount) == loop.result, C::name, loop.name);
}

template <class C>
void callScriptRace(benchmark::State& state) {
    C& me = contestant<C>();
    int64_t sum = 0, count = 0;
    for (auto _ : state) sum += me.callScript(count++, 1);
    check(sum == count * (count + 1) / 2, C::name, "callScript");
}

template <class C>
void makeTableRace(benchmark::State& state) {
    C& me = contestant<C>();
    for (auto _ : state) me.makeTable();
}

template <class C>
void roundTripRace(benchmark::State& state) {
    C& me = contestant<C>();
    for (auto _ : state) {
        me.makeTable();
        check(me.takeTable(), C::name, "the round trip");
    }
}

template <class C>
bool addTableRaces() {
    const std::string suffix = std::string("/") + C::name;
    benchmark::RegisterBenchmark(("makeTable" + suffix).c_str(), [](auto& state) { makeTableRace<C>(state); });
    benchmark::RegisterBenchmark(("makeAndTakeTable" + suffix).c_str(), [](auto& state) { roundTripRace<C>(state); });
    return true;
}

template <class C>
bool addRaces() {
    const std::string suffix = std::string("/") + C::name;
    for (const Loop& loop : loops) {
        benchmark::RegisterBenchmark((loop.name + suffix).c_str(), [&loop](auto& state) { loopRace<C>(state, loop); });
    }
    benchmark::RegisterBenchmark(("callScript" + suffix).c_str(), [](auto& state) { callScriptRace<C>(state); });
    return true;
}

} // namespace bench
