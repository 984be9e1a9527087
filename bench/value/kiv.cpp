#include "Record.h"
#include "kiv/data/Item.h"

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace {

using kiv::Item;

void encode(const bench::Record& record, Item& list, Item& item) {
    list.clear();
    for (const int32_t value : record.window) list.add(value);
    item.clear();
    item.add(record.text.c_str());
    item.add(record.series);
    item.add(record.position);
    item.add(record.time);
    item.add(record.spacing);
    item.addBuffer(record.digest.data(), static_cast<unsigned>(record.digest.size()));
    item.addItem(list);
}

int64_t decode(const Item& item) {
    bench::Sum sum;
    Item::Iterator it = item.getIterator();
    const int start = it.getOffset();
    const char* text = it.asWeakCStr();
    sum.add(text, static_cast<size_t>(it.getOffset() - start - 2));
    int64_t integer = 0;
    for (int i = 0; i < 3; ++i) {
        it.asInteger(integer);
        sum.add(integer);
    }
    double number = 0;
    it.asFloat(number);
    sum.add(number);
    unsigned size = 0;
    const uint8_t* bytes = it.asWeakBuffer(size);
    sum.add(bytes, size);
    Item list;
    it.asWeakSubItem(list);
    for (Item::Iterator element = list.getIterator(); element.asInteger(integer);) sum.add(integer);
    return sum.get();
}

void encodeKiv(benchmark::State& state) {
    const bench::Record record;
    Item list, item;
    for (auto _ : state) {
        encode(record, list, item);
        benchmark::DoNotOptimize(item.getPlainBytePointer());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encodeKiv)->Name("encode/kiv");

void decodeKiv(benchmark::State& state) {
    const bench::Record record;
    Item list, item;
    encode(record, list, item);
    if (decode(item) != bench::sumOf(record)) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(decode(item));
    }
}
BENCHMARK(decodeKiv)->Name("decode/kiv");

void compareKiv(benchmark::State& state, const bench::Record& other, bool equal) {
    Item list, a, b;
    encode(bench::Record(), list, a);
    encode(other, list, b);
    if ((Item::compare(a, b) == 0) != equal) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(Item::compare(a, b));
    }
}
BENCHMARK_CAPTURE(compareKiv, equal, bench::Record(), true)->Name("compare-equal/kiv");
BENCHMARK_CAPTURE(compareKiv, late, bench::lateDifferent(), false)->Name("compare-late/kiv");

Item encoded(const bench::Key& key) {
    Item item(key.text.c_str());
    item.add(key.time);
    item.add(key.index);
    return item;
}

void compareKeyKiv(benchmark::State& state) {
    const Item a = encoded(bench::Key()), b = encoded(bench::nextKey());
    if (Item::compareTotal(a, b) >= 0 || a.getPlainSize() != 26) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(Item::compareTotal(a, b));
    }
}
BENCHMARK(compareKeyKiv)->Name("compare-key/kiv");

} // namespace
