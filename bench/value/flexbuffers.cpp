#include "Record.h"

#include <benchmark/benchmark.h>
#include <flatbuffers/flexbuffers.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void encode(const bench::Record& record, flexbuffers::Builder& builder) {
    builder.Clear();
    builder.Vector([&] {
        builder.String(record.text);
        builder.Int(record.series);
        builder.Int(record.position);
        builder.Int(record.time);
        builder.Double(record.spacing);
        builder.Blob(record.digest.data(), record.digest.size());
        builder.Vector(record.window.data(), record.window.size());
    });
    builder.Finish();
}

int64_t decode(const std::vector<uint8_t>& bytes) {
    bench::Sum sum;
    const flexbuffers::Vector fields = flexbuffers::GetRoot(bytes).AsVector();
    const flexbuffers::String text = fields[0].AsString();
    sum.add(text.c_str(), text.size());
    for (size_t i = 1; i < 4; ++i) sum.add(fields[i].AsInt64());
    sum.add(fields[4].AsDouble());
    const flexbuffers::Blob digest = fields[5].AsBlob();
    sum.add(digest.data(), digest.size());
    const flexbuffers::TypedVector window = fields[6].AsTypedVector();
    for (size_t i = 0; i < window.size(); ++i) sum.add(window[i].AsInt64());
    return sum.get();
}

int orderOf(int64_t a, int64_t b) {
    return a < b ? -1 : a > b;
}

int compare(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    const flexbuffers::Vector x = flexbuffers::GetRoot(a).AsVector(), y = flexbuffers::GetRoot(b).AsVector();
    if (const int order = std::strcmp(x[0].AsString().c_str(), y[0].AsString().c_str()); order != 0) return order;
    for (size_t i = 1; i < 4; ++i) {
        if (const int order = orderOf(x[i].AsInt64(), y[i].AsInt64()); order != 0) return order;
    }
    if (x[4].AsDouble() != y[4].AsDouble()) return x[4].AsDouble() < y[4].AsDouble() ? -1 : 1;
    const flexbuffers::Blob p = x[5].AsBlob(), q = y[5].AsBlob();
    if (const int order = std::memcmp(p.data(), q.data(), std::min(p.size(), q.size())); order != 0) return order;
    const flexbuffers::TypedVector m = x[6].AsTypedVector(), n = y[6].AsTypedVector();
    for (size_t i = 0; i < std::min(m.size(), n.size()); ++i) {
        if (const int order = orderOf(m[i].AsInt64(), n[i].AsInt64()); order != 0) return order;
    }
    return 0;
}

void encodeFlex(benchmark::State& state) {
    const bench::Record record;
    flexbuffers::Builder builder;
    for (auto _ : state) {
        encode(record, builder);
        benchmark::DoNotOptimize(builder.GetBuffer().data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encodeFlex)->Name("encode/FlexBuffers");

std::vector<uint8_t> encoded(const bench::Record& record) {
    flexbuffers::Builder builder;
    encode(record, builder);
    return builder.GetBuffer();
}

void decodeFlex(benchmark::State& state) {
    const bench::Record record;
    const std::vector<uint8_t> bytes = encoded(record);
    if (decode(bytes) != bench::sumOf(record)) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(decode(bytes));
    }
}
BENCHMARK(decodeFlex)->Name("decode/FlexBuffers");

void compareFlex(benchmark::State& state, const bench::Record& other, bool equal) {
    const std::vector<uint8_t> a = encoded(bench::Record()), b = encoded(other);
    if ((compare(a, b) == 0) != equal) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(compare(a, b));
    }
}
BENCHMARK_CAPTURE(compareFlex, equal, bench::Record(), true)->Name("compare-equal/FlexBuffers");
BENCHMARK_CAPTURE(compareFlex, late, bench::lateDifferent(), false)->Name("compare-late/FlexBuffers");

std::vector<uint8_t> encoded(const bench::Key& key) {
    flexbuffers::Builder builder;
    builder.Vector([&] {
        builder.String(key.text);
        builder.Int(key.time);
        builder.Int(key.index);
    });
    builder.Finish();
    return builder.GetBuffer();
}

int compareKeys(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    const flexbuffers::Vector x = flexbuffers::GetRoot(a).AsVector(), y = flexbuffers::GetRoot(b).AsVector();
    if (const int order = std::strcmp(x[0].AsString().c_str(), y[0].AsString().c_str()); order != 0) return order;
    for (size_t i = 1; i < 3; ++i) {
        if (const int order = orderOf(x[i].AsInt64(), y[i].AsInt64()); order != 0) return order;
    }
    return 0;
}

void compareKeyFlex(benchmark::State& state) {
    const std::vector<uint8_t> a = encoded(bench::Key()), b = encoded(bench::nextKey());
    if (compareKeys(a, b) >= 0) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(compareKeys(a, b));
    }
}
BENCHMARK(compareKeyFlex)->Name("compare-key/FlexBuffers");

} // namespace
