#include "kiv/core/SmartPointer.h"
#include "kiv/core/UnmanagedObject.h"
#include "kiv/core/WeakPointer.h"
#include <benchmark/benchmark.h>

namespace {

// Copying an owning pointer and dropping the copy.
void copyDrop(benchmark::State& state) {
    const auto pointer = kiv::makeObject<kiv::Object>();
    for (auto _ : state) {
        kiv::SmartPointer<kiv::Object> copy(pointer);
        benchmark::DoNotOptimize(copy.get());
    }
}

void makeDestroy(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(kiv::makeObject<kiv::Object>().get());
}

// Watching an object and ceasing to.
void watch(benchmark::State& state) {
    kiv::UnmanagedObject target;
    for (auto _ : state) {
        kiv::WeakPointer<kiv::Object> pointer(&target);
        benchmark::DoNotOptimize(pointer.get());
    }
}

// From a weak pointer to an owning one.
void lockWeak(benchmark::State& state) {
    const auto target = kiv::makeObject<kiv::Object>();
    const kiv::WeakPointer<kiv::Object> pointer(target);
    for (auto _ : state) benchmark::DoNotOptimize(pointer.lock().get());
}

} // namespace

BENCHMARK(copyDrop)->Name("copy-drop/kiv");
BENCHMARK(makeDestroy)->Name("make-destroy/kiv");
BENCHMARK(watch)->Name("watch/kiv");
BENCHMARK(lockWeak)->Name("lock-weak/kiv");
