#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

// The same 64 KiB of bytes in every race, and 48 bytes for the cost of a call. Rates count the bytes, not the
// characters.
namespace workload {

using Bytes = std::vector<uint8_t>;

inline Bytes bytes(size_t size) {
    Bytes all(size);
    uint64_t state = 20240229;
    for (uint8_t& byte : all) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        byte = static_cast<uint8_t>(state >> 56);
    }
    return all;
}

// Registers `<codec>-encode/<contestant>` and `<codec>-decode/<contestant>` for both sizes. `encode` writes the text of
// bytes to a string that is large enough and returns its length; `decode` writes the bytes of that text. `prepare` is
// called before each.
template <class Encode, class Decode, class Prepare = void (*)()>
void add(
    const std::string& codec, const std::string& contestant, Encode encode, Decode decode, Prepare prepare = [] {}) {
    for (const size_t size : {size_t{65536}, size_t{48}}) {
        const std::string suffix = (size == 48 ? "-48/" : "/") + contestant;
        const auto finish = [size](benchmark::State& state) {
            state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
        };
        benchmark::RegisterBenchmark((codec + "-encode" + suffix).c_str(), [=](benchmark::State& state) {
            prepare();
            const Bytes in = bytes(size);
            std::string text(2 * size + 64, '\0');
            for (auto _ : state) {
                benchmark::DoNotOptimize(encode(in, text));
                benchmark::ClobberMemory();
            }
            finish(state);
        });
        benchmark::RegisterBenchmark((codec + "-decode" + suffix).c_str(), [=](benchmark::State& state) {
            prepare();
            const Bytes in = bytes(size);
            std::string text(2 * size + 64, '\0');
            text.resize(encode(in, text));
            Bytes out(size + 64);
            for (auto _ : state) {
                if (!decode(text, out)) return state.SkipWithError("refused its own text");
                benchmark::ClobberMemory();
            }
            out.resize(size);
            if (out != in) return state.SkipWithError("decoded other bytes");
            finish(state);
        });
    }
}

} // namespace workload
