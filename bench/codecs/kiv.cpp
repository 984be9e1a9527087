#include "Workload.h"

#include "kiv/core/Codecs.h"
#include "kiv/core/Simd.h"

using namespace kiv::internal;
using workload::Bytes;

namespace {

void addLevel(SimdLevel level, const char* contestant) {
    const auto prepare = [level] { setSimdLevel(level); };
    workload::add(
        "base64", contestant,
        [](const Bytes& in, std::string& text) {
            encodeBase64(in.data(), in.size(), text.data());
            return static_cast<size_t>(encodedBase64Size(in.size()));
        },
        [](const std::string& text, Bytes& out) {
            return static_cast<bool>(decodeBase64(text.data(), text.size(), out.data()));
        },
        prepare);
    workload::add(
        "base16", contestant,
        [](const Bytes& in, std::string& text) {
            encodeBase16(in.data(), in.size(), text.data());
            return static_cast<size_t>(encodedBase16Size(in.size()));
        },
        [](const std::string& text, Bytes& out) {
            return static_cast<bool>(decodeBase16(text.data(), text.size(), out.data()));
        },
        prepare);
}

[[maybe_unused]] const bool added = [] {
    addLevel(supportedSimdLevel(), "kiv");
    addLevel(SimdLevel::Sse4, "kiv-sse4");
    addLevel(SimdLevel::Portable, "kiv-portable");
    benchmark::RegisterBenchmark("checksum/kiv", [](benchmark::State& state) {
        const Bytes in = workload::bytes(65536);
        for (auto _ : state) benchmark::DoNotOptimize(checksum24(in.data(), in.size()));
        state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(in.size()));
    });
    return true;
}();

} // namespace
