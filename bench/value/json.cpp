#include "Record.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <vector>

namespace {

using nlohmann::json;

void encode(const bench::Record& record, std::vector<uint8_t>& out) {
    out.clear();
    json fields = json::array();
    fields.push_back(record.text);
    fields.push_back(record.series);
    fields.push_back(record.position);
    fields.push_back(record.time);
    fields.push_back(record.spacing);
    fields.push_back(json::binary({record.digest.begin(), record.digest.end()}));
    fields.push_back(record.window);
    json::to_cbor(fields, out);
}

int64_t decode(const std::vector<uint8_t>& bytes) {
    const json fields = json::from_cbor(bytes);
    bench::Sum sum;
    const auto& text = fields[0].get_ref<const std::string&>();
    sum.add(text.data(), text.size());
    for (size_t i = 1; i < 4; ++i) sum.add(fields[i].get<int64_t>());
    sum.add(fields[4].get<double>());
    sum.add(fields[5].get_binary().data(), fields[5].get_binary().size());
    for (const json& value : fields[6]) sum.add(value.get<int64_t>());
    return sum.get();
}

void encodeCBOR(benchmark::State& state) {
    const bench::Record record;
    std::vector<uint8_t> out;
    for (auto _ : state) {
        encode(record, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encodeCBOR)->Name("encode/json-CBOR");

void decodeCBOR(benchmark::State& state) {
    const bench::Record record;
    std::vector<uint8_t> bytes;
    encode(record, bytes);
    if (decode(bytes) != bench::sumOf(record)) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(decode(bytes));
    }
}
BENCHMARK(decodeCBOR)->Name("decode/json-CBOR");

void compareCBOR(benchmark::State& state, const bench::Record& other, bool equal) {
    std::vector<uint8_t> a, b;
    encode(bench::Record(), a);
    encode(other, b);
    auto same = [&] { return json::from_cbor(a) == json::from_cbor(b); };
    if (same() != equal) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(same());
    }
}
BENCHMARK_CAPTURE(compareCBOR, equal, bench::Record(), true)->Name("compare-equal/json-CBOR");
BENCHMARK_CAPTURE(compareCBOR, late, bench::lateDifferent(), false)->Name("compare-late/json-CBOR");

} // namespace
