#include "Output.h"
#include <benchmark/benchmark.h>
#include <memory>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

namespace {

void logLine(benchmark::State& state) {
    const OutputToFile file;
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::stdout_sink_mt>());
    logger.set_pattern("[%E.%e] [%l] %v");
    logger.flush_on(spdlog::level::info);
    Line line;
    for (auto _ : state) {
        benchmark::DoNotOptimize(line);
        logger.warn("{} {}, {:g} ms", line.text, line.row, line.milliseconds);
    }
}

} // namespace

BENCHMARK(logLine)->Name("log-line/spdlog");
