// The table is written out as the compiler of flatbuffers writes it.

#include "Frame.h"

#include <benchmark/benchmark.h>
#include <flatbuffers/flatbuffers.h>

namespace {

using bench::Frame;

struct FlatFrame : private flatbuffers::Table {
    enum : flatbuffers::voffset_t {
        Number = 4,
        Time = 6,
        Width = 8,
        Height = 10,
        Gain = 12,
        Exposure = 14,
        Note = 16,
        Pixels = 18,
        Raw = 20
    };

    uint32_t number() const { return GetField<uint32_t>(Number, 0); }
    uint64_t time() const { return GetField<uint64_t>(Time, 0); }
    uint16_t width() const { return GetField<uint16_t>(Width, 0); }
    uint16_t height() const { return GetField<uint16_t>(Height, 0); }
    float gain() const { return GetField<float>(Gain, 0); }
    double exposure() const { return GetField<double>(Exposure, 0); }
    const flatbuffers::String* note() const { return GetPointer<const flatbuffers::String*>(Note); }
    const flatbuffers::Vector<uint16_t>* pixels() const {
        return GetPointer<const flatbuffers::Vector<uint16_t>*>(Pixels);
    }
    const flatbuffers::Vector<uint8_t>* raw() const { return GetPointer<const flatbuffers::Vector<uint8_t>*>(Raw); }

    bool Verify(flatbuffers::Verifier& verifier) const {
        return VerifyTableStart(verifier) && VerifyField<uint32_t>(verifier, Number, sizeof(uint32_t)) &&
               VerifyField<uint64_t>(verifier, Time, sizeof(uint64_t)) &&
               VerifyField<uint16_t>(verifier, Width, sizeof(uint16_t)) &&
               VerifyField<uint16_t>(verifier, Height, sizeof(uint16_t)) &&
               VerifyField<float>(verifier, Gain, sizeof(float)) &&
               VerifyField<double>(verifier, Exposure, sizeof(double)) && VerifyOffset(verifier, Note) &&
               verifier.VerifyString(note()) && VerifyOffset(verifier, Pixels) && verifier.VerifyVector(pixels()) &&
               VerifyOffset(verifier, Raw) && verifier.VerifyVector(raw()) && verifier.EndTable();
    }
};

void buildFrame(flatbuffers::FlatBufferBuilder& builder, const Frame& frame) {
    const auto note = builder.CreateString(frame.note);
    const auto pixels = builder.CreateVector(frame.pixels.data(), frame.pixels.size());
    const auto raw = builder.CreateVector(frame.raw.data(), frame.raw.size());
    const auto start = builder.StartTable();
    builder.AddElement(FlatFrame::Time, frame.time, uint64_t{0});
    builder.AddElement(FlatFrame::Exposure, frame.exposure, 0.0);
    builder.AddElement(FlatFrame::Number, frame.number, 0u);
    builder.AddElement(FlatFrame::Gain, frame.gain, 0.0f);
    builder.AddOffset(FlatFrame::Note, note);
    builder.AddOffset(FlatFrame::Pixels, pixels);
    builder.AddOffset(FlatFrame::Raw, raw);
    builder.AddElement(FlatFrame::Width, frame.width, uint16_t{0});
    builder.AddElement(FlatFrame::Height, frame.height, uint16_t{0});
    builder.Finish(flatbuffers::Offset<FlatFrame>(builder.EndTable(start)));
}

bench::Found find(const uint8_t* bytes) {
    const auto* frame = flatbuffers::GetRoot<FlatFrame>(bytes);
    bench::Found found;
    found.number = frame->number();
    found.time = frame->time();
    found.width = frame->width();
    found.height = frame->height();
    found.gain = static_cast<double>(frame->gain());
    found.exposure = frame->exposure();
    found.note = frame->note()->c_str();
    found.pixels = frame->pixels()->data();
    found.pixelBytes = frame->pixels()->size() * 2;
    found.raw = frame->raw()->data();
    found.rawBytes = frame->raw()->size();
    return found;
}

void build(benchmark::State& state) {
    const Frame frame;
    flatbuffers::FlatBufferBuilder builder(8192);
    for (auto _ : state) {
        builder.Clear();
        buildFrame(builder, frame);
        benchmark::DoNotOptimize(builder.GetBufferPointer());
        benchmark::ClobberMemory();
    }
    if (!find(builder.GetBufferPointer()).isOf(frame)) state.SkipWithError("wrong bytes");
}

template <class Use>
void fit(benchmark::State& state, Use use) {
    const Frame frame;
    flatbuffers::FlatBufferBuilder builder(8192);
    buildFrame(builder, frame);
    const uint8_t* data = builder.GetBufferPointer();
    bool isRight = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(data);
        flatbuffers::Verifier verifier(data, builder.GetSize());
        bool fits = verifier.VerifyBuffer<FlatFrame>(nullptr);
        benchmark::DoNotOptimize(fits);
        isRight &= fits;
        use(data);
    }
    if (!isRight || !find(data).isOf(frame)) state.SkipWithError("wrong fields");
}

BENCHMARK(build)->Name("build/flatbuffers");
BENCHMARK_CAPTURE(fit, flatbuffers, [](const uint8_t*) {})->Name("fit/flatbuffers");
BENCHMARK_CAPTURE(fit, find, [](const uint8_t* data) {
    bench::Found found = find(data);
    benchmark::DoNotOptimize(found);
})->Name("fit-and-find/flatbuffers");

} // namespace
