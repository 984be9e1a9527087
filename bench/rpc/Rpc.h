#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/data/Packet.h"
#include "kiv/process/Process.h"

#include <benchmark/benchmark.h>
#include <cstdint>

// The work: one end asks for the sum of two integers, the other one answers, one call after another. The line is a
// queue of packets in memory, where each is made of bytes again, or the pipes of a child process.
namespace bench {

// What has come over a line: raw.
inline kiv::SmartPointer<kiv::Packet> carried(const kiv::Packet& packet) {
    return kiv::Packet::createFromBufferWithManifest(packet.convertToBufferWithManifest());
}

// Starts this program again as a child that answers.
bool startChild(kiv::Process& process, const char* contestant);

// What the child of a contestant does.
int answerByHand();
int answerAsChannel();

// One round trip each; `call` gives the sum.
template <class Contestant>
void runCalls(benchmark::State& state) {
    Contestant contestant;
    int64_t i = 0;
    for (auto _ : state) {
        ++i;
        if (contestant.call(i, 2 * i) != 3 * i) return state.SkipWithError("a wrong answer");
    }
}

template <class Contestant>
void raceCalls(const char* name) {
    benchmark::RegisterBenchmark(name, runCalls<Contestant>)->UseRealTime();
}

} // namespace bench
