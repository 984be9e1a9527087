#include "Frame.h"

#include "kiv/data/Packet.h"

#include <benchmark/benchmark.h>
#include <utility>
#include <vector>

namespace {

using namespace kiv;
using bench::Frame;

struct FrameScheme : PacketScheme {
    explicit FrameScheme(const char* name) : PacketScheme(40, "bench", nullptr, name) {}
    const NumberField<uint32_t> number = Number<uint32_t>("number");
    const NumberField<uint64_t> time = Number<uint64_t>("time");
    const NumberField<uint16_t> width = Number<uint16_t>("width");
    const NumberField<uint16_t> height = Number<uint16_t>("height");
    const NumberField<float> gain = Number<float>("gain");
    const NumberField<double> exposure = Number<double>("exposure");
    const Field note = String("note", UpTo(256));
    const Field pixels = Numbers<uint16_t>("pixels", UpTo(65536));
    const Field raw = Buffer("raw", UpTo(65536));
};
const FrameScheme scheme("Frame");
const FrameScheme twin("Twin"); // logged as not registered, which does not matter here

// Fields by name, as the scheme's members.
struct Names {
    const char* number = "number";
    const char* time = "time";
    const char* width = "width";
    const char* height = "height";
    const char* gain = "gain";
    const char* exposure = "exposure";
    const char* note = "note";
    const char* pixels = "pixels";
    const char* raw = "raw";
};
const Names names;

void setNumbers(Packet& packet, const FrameScheme& fields, const Frame& frame) {
    packet.set(fields.number, frame.number);
    packet.set(fields.time, frame.time);
    packet.set(fields.width, frame.width);
    packet.set(fields.height, frame.height);
    packet.set(fields.gain, frame.gain);
    packet.set(fields.exposure, frame.exposure);
}

void setNumbers(Packet& packet, const Names& fields, const Frame& frame) {
    packet.setInteger(fields.number, frame.number);
    packet.setInteger(fields.time, frame.time);
    packet.setInteger(fields.width, frame.width);
    packet.setInteger(fields.height, frame.height);
    packet.setFloat(fields.gain, static_cast<double>(frame.gain));
    packet.setFloat(fields.exposure, frame.exposure);
}

void getNumbers(const Packet& packet, const FrameScheme& fields, bench::Found& found) {
    found.number = packet.get(fields.number);
    found.time = packet.get(fields.time);
    found.width = packet.get(fields.width);
    found.height = packet.get(fields.height);
    found.gain = static_cast<double>(packet.get(fields.gain));
    found.exposure = packet.get(fields.exposure);
}

void getNumbers(const Packet& packet, const Names& fields, bench::Found& found) {
    found.number = static_cast<uint64_t>(packet.getInteger(fields.number));
    found.time = static_cast<uint64_t>(packet.getInteger(fields.time));
    found.width = static_cast<uint64_t>(packet.getInteger(fields.width));
    found.height = static_cast<uint64_t>(packet.getInteger(fields.height));
    found.gain = packet.getFloat(fields.gain);
    found.exposure = packet.getFloat(fields.exposure);
}

template <class Fields>
void fill(Packet& packet, const Fields& fields, const Frame& frame, bool copy) {
    setNumbers(packet, fields, frame);
    packet.setString(fields.note, frame.note);
    packet.setBuffer(fields.pixels, reinterpret_cast<const uint8_t*>(frame.pixels.data()), 2000, copy);
    packet.setBuffer(fields.raw, frame.raw.data(), 4096, copy);
}

template <class Fields>
bench::Found find(const Packet& packet, const Fields& fields) {
    bench::Found found;
    getNumbers(packet, fields, found);
    found.note = packet.getString(fields.note);
    const ConstByteSpan pixels = packet.getByteSpan(fields.pixels);
    const ConstByteSpan raw = packet.getByteSpan(fields.raw);
    found.pixels = pixels.getBytePointer();
    found.pixelBytes = pixels.getSize();
    found.raw = raw.getBytePointer();
    found.rawBytes = raw.getSize();
    return found;
}

template <class Fields>
void build(benchmark::State& state, const Fields& fields, bool copy) {
    const Frame frame;
    std::vector<uint8_t> wire(8192);
    unsigned size = 0;
    for (auto _ : state) {
        const auto packet = makeObject<Packet>(&scheme, short{0});
        fill(*packet, fields, frame, copy);
        size = packet->getPayloadSize();
        packet->copyPayloadTo(wire.data());
        benchmark::DoNotOptimize(wire.data());
        benchmark::ClobberMemory();
    }
    Packet again(size, wire.data(), nullptr);
    again.setID(scheme.getID());
    again.setFlags(Packet::VersionedFlag);
    if (!again.fit(&scheme) || !find(again, scheme).isOf(frame)) state.SkipWithError("wrong bytes");
}

std::vector<uint8_t> frameBytes(const Frame& frame) {
    Packet packet(&scheme, 0);
    fill(packet, scheme, frame, true);
    std::vector<uint8_t> bytes(packet.getPayloadSize());
    packet.copyPayloadTo(bytes.data());
    return bytes;
}

// As a reader hands it on.
SmartPointer<Packet> receive(const std::vector<uint8_t>& bytes) {
    auto packet = makeObject<Packet>(static_cast<unsigned>(bytes.size()), bytes.data(), nullptr);
    packet->setID(scheme.getID());
    packet->setFlags(Packet::VersionedFlag);
    return packet;
}

template <class Fields>
void check(benchmark::State& state, const Packet& packet, const Fields& fields, bool isRight) {
    if (!isRight || !find(packet, fields).isOf(Frame())) state.SkipWithError("wrong fields");
}

// One packet at hand, fitted in turn to two schemes that are equal: it never remembers that it fits.
template <class Use>
void fit(benchmark::State& state, Use use) {
    const std::vector<uint8_t> bytes = frameBytes(Frame());
    const auto packet = receive(bytes);
    const FrameScheme* current = &scheme;
    const FrameScheme* next = &twin;
    bool isRight = true;
    for (auto _ : state) {
        std::swap(current, next);
        isRight &= packet->fit(current);
        use(*packet, *current);
        benchmark::ClobberMemory();
    }
    check(state, *packet, *current, isRight);
}

void fitAndFind(benchmark::State& state) {
    fit(state, [](const Packet& packet, const FrameScheme& fields) {
        bench::Found found = find(packet, fields);
        benchmark::DoNotOptimize(found);
    });
}

void fitAndFindByName(benchmark::State& state) {
    fit(state, [](const Packet& packet, const FrameScheme&) {
        bench::Found found = find(packet, names);
        benchmark::DoNotOptimize(found);
    });
}

// With the making and the end of a packet for every record.
void receiveFitAndFind(benchmark::State& state) {
    const std::vector<uint8_t> bytes = frameBytes(Frame());
    bool isRight = true;
    for (auto _ : state) {
        const auto packet = receive(bytes);
        isRight &= packet->fit(&scheme);
        bench::Found found = find(*packet, scheme);
        benchmark::DoNotOptimize(found);
    }
    const auto packet = receive(bytes);
    check(state, *packet, scheme, packet->fit(&scheme) && isRight);
}

// The arrays stay where they are until the bytes are written, as the builder of flatbuffers takes them.
BENCHMARK_CAPTURE(build, kiv, scheme, false)->Name("build/kiv");
BENCHMARK_CAPTURE(build, names, names, false)->Name("build/kiv-by-name");
BENCHMARK_CAPTURE(build, copies, scheme, true)->Name("build/kiv-copying-twice");
BENCHMARK_CAPTURE(fit, kiv, [](const Packet&, const FrameScheme&) {})->Name("fit/kiv");
BENCHMARK(fitAndFind)->Name("fit-and-find/kiv");
BENCHMARK(fitAndFindByName)->Name("fit-and-find/kiv-by-name");
BENCHMARK(receiveFitAndFind)->Name("fit-and-find/kiv-with-making");

} // namespace
