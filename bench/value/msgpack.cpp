#include "Record.h"

#include <benchmark/benchmark.h>
#include <msgpack.hpp>

#include <cstdlib>

namespace {

void encode(const bench::Record& record, msgpack::sbuffer& out) {
    out.clear();
    msgpack::packer<msgpack::sbuffer> packer(out);
    packer.pack_array(7);
    packer.pack_str(static_cast<uint32_t>(record.text.size()));
    packer.pack_str_body(record.text.data(), static_cast<uint32_t>(record.text.size()));
    packer.pack_int64(record.series);
    packer.pack_int64(record.position);
    packer.pack_int64(record.time);
    packer.pack_double(record.spacing);
    packer.pack_bin(static_cast<uint32_t>(record.digest.size()));
    packer.pack_bin_body(reinterpret_cast<const char*>(record.digest.data()),
                         static_cast<uint32_t>(record.digest.size()));
    packer.pack_array(static_cast<uint32_t>(record.window.size()));
    for (const int32_t value : record.window) packer.pack_int32(value);
}

// Decodes in place, without building objects.
struct Visitor : msgpack::null_visitor {
    bench::Sum sum;
    bool visit_positive_integer(uint64_t value) { return sum.add(static_cast<int64_t>(value)), true; }
    bool visit_negative_integer(int64_t value) { return sum.add(value), true; }
    bool visit_float64(double value) { return sum.add(value), true; }
    bool visit_str(const char* text, uint32_t size) { return sum.add(text, size), true; }
    bool visit_bin(const char* bytes, uint32_t size) {
        return sum.add(reinterpret_cast<const uint8_t*>(bytes), size), true;
    }
};

int64_t visit(const msgpack::sbuffer& bytes) {
    Visitor visitor;
    size_t offset = 0;
    if (!msgpack::parse(bytes.data(), bytes.size(), offset, visitor)) std::abort();
    return visitor.sum.get();
}

int64_t decodeObjects(const msgpack::sbuffer& bytes) {
    const msgpack::object_handle handle = msgpack::unpack(bytes.data(), bytes.size());
    const msgpack::object_array& fields = handle->via.array;
    bench::Sum sum;
    sum.add(fields.ptr[0].via.str.ptr, fields.ptr[0].via.str.size);
    for (int i = 1; i < 4; ++i) sum.add(fields.ptr[i].as<int64_t>());
    sum.add(fields.ptr[4].as<double>());
    sum.add(reinterpret_cast<const uint8_t*>(fields.ptr[5].via.bin.ptr), fields.ptr[5].via.bin.size);
    const msgpack::object_array& window = fields.ptr[6].via.array;
    for (uint32_t i = 0; i < window.size; ++i) sum.add(window.ptr[i].as<int64_t>());
    return sum.get();
}

void encodeMsgpack(benchmark::State& state) {
    const bench::Record record;
    msgpack::sbuffer out;
    for (auto _ : state) {
        encode(record, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(encodeMsgpack)->Name("encode/msgpack-cxx");

void decodeMsgpack(benchmark::State& state, int64_t (*decode)(const msgpack::sbuffer&)) {
    const bench::Record record;
    msgpack::sbuffer bytes;
    encode(record, bytes);
    if (decode(bytes) != bench::sumOf(record)) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(decode(bytes));
    }
}
BENCHMARK_CAPTURE(decodeMsgpack, visit, visit)->Name("decode/msgpack-cxx");
BENCHMARK_CAPTURE(decodeMsgpack, objects, decodeObjects)->Name("decode/msgpack-cxx-objects");

void compareMsgpack(benchmark::State& state, const bench::Record& other, bool equal) {
    msgpack::sbuffer a, b;
    encode(bench::Record(), a);
    encode(other, b);
    auto same = [&] { return msgpack::unpack(a.data(), a.size()).get() == msgpack::unpack(b.data(), b.size()).get(); };
    if (same() != equal) std::abort();
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(same());
    }
}
BENCHMARK_CAPTURE(compareMsgpack, equal, bench::Record(), true)->Name("compare-equal/msgpack-cxx");
BENCHMARK_CAPTURE(compareMsgpack, late, bench::lateDifferent(), false)->Name("compare-late/msgpack-cxx");

} // namespace
