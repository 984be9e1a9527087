#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <boost/weak_ptr.hpp>

namespace {

struct Counted : boost::intrusive_ref_counter<Counted, boost::thread_safe_counter> {
    virtual ~Counted() = default;
    void* pointer = nullptr;
};

struct Plain {
    virtual ~Plain() = default;
    void* pointer = nullptr;
};

void copyDrop(benchmark::State& state) {
    const boost::intrusive_ptr<Counted> pointer(new Counted);
    for (auto _ : state) {
        boost::intrusive_ptr<Counted> copy(pointer);
        benchmark::DoNotOptimize(copy.get());
    }
}

void makeDestroy(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(boost::intrusive_ptr<Counted>(new Counted).get());
}

void watch(benchmark::State& state) {
    const auto target = boost::make_shared<Plain>();
    for (auto _ : state) {
        boost::weak_ptr<Plain> pointer(target);
        benchmark::DoNotOptimize(pointer);
    }
}

void lockWeak(benchmark::State& state) {
    const auto target = boost::make_shared<Plain>();
    const boost::weak_ptr<Plain> pointer(target);
    for (auto _ : state) benchmark::DoNotOptimize(pointer.lock().get());
}

} // namespace

BENCHMARK(copyDrop)->Name("copy-drop/boost-intrusive_ptr");
BENCHMARK(makeDestroy)->Name("make-destroy/boost-intrusive_ptr");
BENCHMARK(watch)->Name("watch/boost-weak_ptr");
BENCHMARK(lockWeak)->Name("lock-weak/boost-weak_ptr");
