#include "Output.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"
#include <benchmark/benchmark.h>

namespace {

void logLine(benchmark::State& state) {
    kiv::logging::LogBackend::registerBackend(false);
    const OutputToFile file;
    Line line;
    for (auto _ : state) {
        benchmark::DoNotOptimize(line);
        kiv::logging::MessageStream(2, 2) << line.text << ' ' << line.row << ", " << line.milliseconds << " ms";
    }
}

} // namespace

BENCHMARK(logLine)->Name("log-line/kiv");
