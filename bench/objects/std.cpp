#include <benchmark/benchmark.h>
#include <memory>
#include <thread>

namespace {

struct Plain {
    virtual ~Plain() = default;
    void* pointer = nullptr;
};

// libstdc++ counts without atomics as long as a process has had one thread only, which is no use to us: start one.
const bool g_hasThreads = (std::thread([] {}).join(), true);

void copyDrop(benchmark::State& state) {
    const auto pointer = std::make_shared<Plain>();
    for (auto _ : state) {
        std::shared_ptr<Plain> copy(pointer);
        benchmark::DoNotOptimize(copy.get());
    }
}

void makeDestroy(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(std::make_shared<Plain>().get());
}

void watch(benchmark::State& state) {
    const auto target = std::make_shared<Plain>();
    for (auto _ : state) {
        std::weak_ptr<Plain> pointer(target);
        benchmark::DoNotOptimize(pointer);
    }
}

void lockWeak(benchmark::State& state) {
    const auto target = std::make_shared<Plain>();
    const std::weak_ptr<Plain> pointer(target);
    for (auto _ : state) benchmark::DoNotOptimize(pointer.lock().get());
}

} // namespace

BENCHMARK(copyDrop)->Name("copy-drop/std-shared_ptr");
BENCHMARK(makeDestroy)->Name("make-destroy/std-shared_ptr");
BENCHMARK(watch)->Name("watch/std-weak_ptr");
BENCHMARK(lockWeak)->Name("lock-weak/std-weak_ptr");
