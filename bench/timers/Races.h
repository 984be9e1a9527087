#pragma once

#include "Workload.h"
#include <benchmark/benchmark.h>
#include <ctime>
#include <string>

namespace bench {

// Runs one phase of a contestant's work with the processor time taken, the others without. A Contestant has schedule(i,
// delay), cancel(i), fireAll(), which returns how many have fired, and reset(), which leaves no timer scheduled.
enum class Phase { Schedule, Cancel, Fire };

template <class Contestant>
void runTimers(benchmark::State& state, Phase phase) {
    const TimerWorkload& work = TimerWorkload::get();
    Contestant contestant;
    const auto timed = [&](Phase which, auto action) {
        const std::clock_t begin = std::clock();
        action();
        const auto taken = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
        if (which == phase) state.SetIterationTime(taken / timerCount);
    };
    for (auto _ : state) {
        timed(Phase::Schedule, [&] {
            for (size_t i = 0; i < timerCount; ++i) contestant.schedule(i, work.delays[i]);
        });
        if (phase == Phase::Cancel) {
            timed(Phase::Cancel, [&] {
                for (uint32_t i : work.shuffled) contestant.cancel(i);
            });
        }
        size_t fired = 0;
        timed(Phase::Fire, [&] { fired = contestant.fireAll(); });
        check(fired == (phase == Phase::Cancel ? 0 : timerCount), "a contestant");
    }
}

template <class Contestant>
void raceTimers(const std::string& name) {
    const auto add = [&](const char* item, Phase phase) {
        benchmark::RegisterBenchmark((std::string(item) + "/" + name).c_str(), runTimers<Contestant>, phase)
            ->UseManualTime()
            ->Iterations(10); // the time taken for one is a hundred thousandth of what an iteration takes
    };
    add("schedule", Phase::Schedule);
    add("cancel", Phase::Cancel);
    add("fire", Phase::Fire);
}

} // namespace bench
