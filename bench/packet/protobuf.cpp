// The nearest type to an array of 16-bit values is one of 32-bit values of variable length.

#include "Frame.h"

#include "packet/frame.pb.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace {

using bench::Frame;
using bench::ProtoFrame;

void fill(ProtoFrame& message, const Frame& frame) {
    message.set_number(frame.number);
    message.set_time(frame.time);
    message.set_width(frame.width);
    message.set_height(frame.height);
    message.set_gain(frame.gain);
    message.set_exposure(frame.exposure);
    message.set_note(frame.note);
    message.mutable_pixels()->Add(frame.pixels.begin(), frame.pixels.end());
    message.set_raw(frame.raw.data(), frame.raw.size());
}

bool isOf(const ProtoFrame& message, const Frame& frame) {
    return message.number() == frame.number && message.time() == frame.time && message.note() == frame.note &&
           std::equal(frame.pixels.begin(), frame.pixels.end(), message.pixels().begin(), message.pixels().end()) &&
           std::memcmp(message.raw().data(), frame.raw.data(), frame.raw.size()) == 0;
}

void build(benchmark::State& state) {
    const Frame frame;
    ProtoFrame message;
    std::vector<uint8_t> wire(16384);
    size_t size = 0;
    for (auto _ : state) {
        message.Clear();
        fill(message, frame);
        size = message.ByteSizeLong();
        message.SerializeWithCachedSizesToArray(wire.data());
        benchmark::DoNotOptimize(wire.data());
        benchmark::ClobberMemory();
    }
    if (!message.ParseFromArray(wire.data(), static_cast<int>(size)) || !isOf(message, frame))
        state.SkipWithError("wrong bytes");
}

template <class Use>
void fit(benchmark::State& state, Use use) {
    const Frame frame;
    ProtoFrame message;
    fill(message, frame);
    const std::string wire = message.SerializeAsString();
    bool isRight = true;
    for (auto _ : state) {
        isRight &= message.ParseFromString(wire);
        use(message);
    }
    if (!isRight || !isOf(message, frame)) state.SkipWithError("wrong fields");
}

void findFields(const ProtoFrame& message) {
    bench::Found found;
    found.number = message.number();
    found.time = message.time();
    found.width = message.width();
    found.height = message.height();
    found.gain = static_cast<double>(message.gain());
    found.exposure = message.exposure();
    found.note = message.note().c_str();
    found.pixels = message.pixels().data();
    found.pixelBytes = static_cast<size_t>(message.pixels().size()) * 4;
    found.raw = message.raw().data();
    found.rawBytes = message.raw().size();
    benchmark::DoNotOptimize(found);
}

BENCHMARK(build)->Name("build/protobuf");
BENCHMARK_CAPTURE(fit, protobuf, [](const ProtoFrame& message) {
    benchmark::DoNotOptimize(&message);
})->Name("fit/protobuf");
BENCHMARK_CAPTURE(fit, find, findFields)->Name("fit-and-find/protobuf");

} // namespace
