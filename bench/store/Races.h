#pragma once

#include "Workload.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <memory>
#include <string>

// The races, for contestants of this form. One begins empty.
//     using Form = bench::Bytes;
//     static constexpr const char* name = "fast";
//     void startWriting(), startReading()                 before changes, resp. before anything else
//     void set(const Key&, const Value&)
//     uint64_t get(const Key&)                            head() of the value, or 0
//     uint64_t range(const Key& from, size_t count)       the sum of head() of keys and values from there on
//     uint64_t scan()                                     the same of all entries
//     void walk(visit)                                    visit(key bytes, value bytes), as string views, in order
//     void erase(const Key& from, const Key& to)          both included
//     void begin(), commit(), rollback()
//     size_t memory()                                     bytes held
namespace bench {

// What contestants inherit that have nothing to say about it.
struct Contestant {
    void startWriting() {}
    void startReading() {}
    size_t memory() { // all of malloc
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    }
};

template <class C>
using WorkloadOf = Workload<typename C::Form>;

template <class C>
void fill(C& contestant) {
    const auto& work = WorkloadOf<C>::get();
    contestant.startWriting();
    for (size_t i = 0; i < entryCount; ++i) contestant.set(work.keys[i], work.values[i]);
    contestant.startReading();
}

// All entries, no others, in order.
template <class C>
void verify(C& contestant) {
    using Form = typename C::Form;
    const auto& work = WorkloadOf<C>::get();
    size_t at = 0;
    uint64_t sum = 0;
    contestant.walk([&](std::string_view key, std::string_view value) {
        if (at >= entryCount || key != Form::view(work.sorted[at]) || value != Form::view(work.sortedValues[at])) {
            fail(C::name, "holds other entries than it should");
        }
        sum += head(key.data()) + head(value.data());
        ++at;
    });
    if (at != entryCount) fail(C::name, "has lost entries");
    if (contestant.scan() != sum) fail(C::name, "does not scan everything");
    uint64_t direct = 0;
    const size_t start = 77;
    for (size_t i = start; i < start + rangeLength; ++i) {
        direct += head(Form::view(work.sorted[i]).data()) + head(Form::view(work.sortedValues[i]).data());
    }
    if (contestant.range(work.rangeAt(start).from, rangeLength) != direct) fail(C::name, "reads wrong ranges");
    for (size_t i = 0; i < entryCount; i += 1000) {
        if (contestant.get(work.keys[i]) != head(Form::view(work.values[i]).data())) fail(C::name, "misses a hit");
        if (contestant.get(work.misses[i]) != 0) fail(C::name, "hits a miss");
    }
}

// One filled contestant, for the races that only read.
template <class C>
C& filled() {
    static const std::unique_ptr<C> contestant = [] {
        auto made = std::make_unique<C>();
        fill(*made);
        verify(*made);
        return made;
    }();
    return *contestant;
}

// Another, for those that change and restore it.
template <class C>
C& changing() {
    static const std::unique_ptr<C> contestant = [] {
        auto made = std::make_unique<C>();
        fill(*made);
        return made;
    }();
    contestant->startWriting();
    return *contestant;
}

template <class C>
void insertRace(benchmark::State& state) {
    const auto& work = WorkloadOf<C>::get();
    std::unique_ptr<C> contestant;
    while (state.KeepRunningBatch(entryCount)) {
        state.PauseTiming();
        contestant.reset();
        contestant = std::make_unique<C>();
        contestant->startWriting();
        state.ResumeTiming();
        for (size_t i = 0; i < entryCount; ++i) contestant->set(work.keys[i], work.values[i]);
    }
    contestant->startReading();
    verify(*contestant);
}

template <class C>
void getRace(benchmark::State& state, std::vector<typename C::Form::Key> WorkloadOf<C>::*queries) {
    const auto& keys = WorkloadOf<C>::get().*queries;
    C& contestant = filled<C>();
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(contestant.get(keys[at]));
        if (++at == keys.size()) at = 0;
    }
}

template <class C>
void scanRace(benchmark::State& state) {
    C& contestant = filled<C>();
    while (state.KeepRunningBatch(entryCount)) {
        benchmark::DoNotOptimize(contestant.scan());
        benchmark::ClobberMemory();
    }
}

template <class C>
void rangeRace(benchmark::State& state) {
    const auto& ranges = WorkloadOf<C>::get().ranges;
    C& contestant = filled<C>();
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(contestant.range(ranges[at].from, rangeLength));
        if (++at == ranges.size()) at = 0;
    }
}

// Erases sixteen ranges that do not overlap, and puts their entries back.
template <class C>
void eraseRace(benchmark::State& state) {
    constexpr size_t batch = 16;
    constexpr size_t width = entryCount / batch;
    const auto& work = WorkloadOf<C>::get();
    C& contestant = changing<C>();
    std::mt19937_64 random(32);
    std::vector<typename WorkloadOf<C>::Range> ranges(batch);
    std::vector<size_t> starts(batch);
    while (state.KeepRunningBatch(batch)) {
        for (size_t i = 0; i < batch; ++i) {
            starts[i] = i * width + random() % (width - rangeLength);
            ranges[i] = work.rangeAt(starts[i]);
        }
        const auto begin = std::chrono::steady_clock::now();
        for (const auto& range : ranges) contestant.erase(range.from, range.to);
        const auto end = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
        for (const size_t start : starts) {
            if (contestant.get(work.sorted[start]) != 0) fail(C::name, "has not erased");
            for (size_t i = start; i < start + rangeLength; ++i) contestant.set(work.sorted[i], work.sortedValues[i]);
        }
    }
    verify(contestant);
}

enum class Nesting { plain, inner };
enum class Outcome { commit, rollback };

// Transactions that overwrite ten entries far from each other; with Nesting::inner each is the only step of an outer
// one, which is always committed.
template <class C>
void transactionRace(benchmark::State& state, Nesting nesting, Outcome outcome) {
    const auto& work = WorkloadOf<C>::get();
    C& contestant = changing<C>();
    contestant.startReading(); // ends the transaction that changes have with some
    const auto* values = &work.others;
    size_t at = 0;
    for (auto _ : state) {
        if (nesting == Nesting::inner) contestant.begin();
        contestant.begin();
        for (size_t i = at; i < at + 10; ++i) contestant.set(work.keys[i], (*values)[i]);
        if (outcome == Outcome::commit) {
            contestant.commit();
        } else {
            contestant.rollback();
        }
        if (nesting == Nesting::inner) contestant.commit();
        at += 10;
        if (at == entryCount) {
            at = 0;
            if (outcome == Outcome::commit) values = values == &work.others ? &work.values : &work.others;
        }
    }
    if (outcome == Outcome::commit) {
        contestant.startWriting();
        for (size_t i = 0; i < entryCount; ++i) contestant.set(work.keys[i], work.values[i]);
    }
    contestant.startReading();
    verify(contestant);
}

// Bytes an entry takes, those of the empty contestant not counted.
template <class C>
void memoryRace(benchmark::State& state) {
    static const double bytes = [] {
        const auto& work = WorkloadOf<C>::get();
        benchmark::DoNotOptimize(work.keys.data());
        C contestant;
        const size_t before = contestant.memory();
        fill(contestant);
        return static_cast<double>(contestant.memory() - before) / static_cast<double>(entryCount);
    }();
    for (auto _ : state) benchmark::DoNotOptimize(bytes);
    state.counters["bytes_held"] = bytes;
}

template <class C, class Race, class... Arguments>
benchmark::internal::Benchmark* add(const char* item, Race race, Arguments... arguments) {
    const std::string name = std::string(item) + "/" + C::name;
    return benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { race(state, arguments...); });
}

template <class C>
void addReading() {
    add<C>("get-hit", getRace<C>, &WorkloadOf<C>::hits);
    add<C>("get-miss", getRace<C>, &WorkloadOf<C>::misses);
    add<C>("scan", scanRace<C>);
    add<C>("range-100", rangeRace<C>);
}

template <class C>
void addWriting() {
    add<C>("insert", insertRace<C>);
    add<C>("erase-range-100", eraseRace<C>)->UseManualTime();
    add<C>("memory", memoryRace<C>)->Iterations(1);
}

template <class C>
void addTransactions() {
    add<C>("ten-writes-commit", transactionRace<C>, Nesting::plain, Outcome::commit);
    add<C>("ten-writes-rollback", transactionRace<C>, Nesting::plain, Outcome::rollback);
}

template <class C>
void addNestedTransactions() {
    add<C>("nested-commit", transactionRace<C>, Nesting::inner, Outcome::commit);
    add<C>("nested-rollback", transactionRace<C>, Nesting::inner, Outcome::rollback);
}

template <class C>
bool addAll() {
    addWriting<C>();
    addReading<C>();
    addTransactions<C>();
    addNestedTransactions<C>();
    return true;
}

} // namespace bench
