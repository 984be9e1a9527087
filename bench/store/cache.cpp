// What a hit of a CacheStore costs, over as many keys as it holds and over few.

#include "kiv/store/CacheStore.h"
#include "kiv/store/MemoryStore.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using kiv::Item;

// Keys of 26 bytes.
Item keyOf(int64_t index) {
    Item key("series-012");
    key.add((index + 1) * int64_t{0x123456789A});
    key.add(static_cast<int32_t>(1'000'000 + index));
    return key;
}

void cacheHit(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    const kiv::SmartPointer<kiv::Store> backing(new kiv::MemoryStore(false));
    const kiv::SmartPointer<kiv::CacheStore> cache(new kiv::CacheStore(backing.get()));
    std::vector<Item> keys;
    const std::vector<uint8_t> bytes(35, 1);
    Item value;
    value.addBuffer(bytes.data(), 35);
    for (size_t i = 0; i < count; ++i) {
        keys.push_back(keyOf(static_cast<int64_t>(i)));
        cache->set(keys.back(), value);
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    size_t at = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache->get(keys[at])->getPlainBytePointer());
        if (++at == count) at = 0;
    }
    if (cache->getMissCount() != 0) state.SkipWithError("a miss");
    state.counters["key_bytes"] = keys.front().getPlainSize();
}
BENCHMARK(cacheHit)->Name("cache-hit/kiv")->ArgName("entries")->Arg(8192);
BENCHMARK(cacheHit)->Name("cache-hit-few/kiv")->ArgName("entries")->Arg(256);

} // namespace
