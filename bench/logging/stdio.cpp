#include "Output.h"
#include <benchmark/benchmark.h>
#include <chrono>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// What a careful C programmer writes: one fprintf with the time stamp and a flush.
void fprintfLine(benchmark::State& state) {
    const OutputToFile file;
    const auto start = Clock::now();
    Line line;
    for (auto _ : state) {
        benchmark::DoNotOptimize(line);
        std::fprintf(stdout, "[%7.3f] [WARNING] %s %d, %g ms\n", secondsSince(start), line.text, line.row,
                     line.milliseconds);
        std::fflush(stdout);
    }
}

// The limit: a finished line of the same length handed to the system.
void writeLine(benchmark::State& state) {
    const OutputToFile file;
    const std::string line = "[  0.123] [WARNING] slice of volume reconstructed, row 1234, 56.75 ms\n";
    for (auto _ : state) benchmark::DoNotOptimize(write(STDOUT_FILENO, line.data(), line.size()));
}

} // namespace

BENCHMARK(fprintfLine)->Name("log-line/fprintf");
BENCHMARK(writeLine)->Name("log-line/write-limit");
