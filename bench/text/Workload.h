#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

// The texts of the race, 64 KiB each: plain ASCII; valid text of five scripts in which about half of the code points
// are ASCII; the same with one refused byte in about 1000; and Windows-1252 prose, where every eighth letter is
// refused.
namespace workload {

constexpr size_t textSize = 65536;

// A fixed sequence, so that every contestant and every run sees the same text.
class Sequence {
public:
    uint32_t below(uint32_t limit) {
        m_state = m_state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>((m_state >> 33) % limit);
    }

private:
    uint64_t m_state = 20240229;
};

inline std::string asciiText() {
    Sequence sequence;
    std::string text;
    while (text.size() < textSize) text += sequence.below(6) == 0 ? ' ' : static_cast<char>('a' + sequence.below(26));
    return text;
}

// Words of a script follow one another, as they do in real text.
inline std::string mixedText() {
    static constexpr std::array<std::string_view, 5> scripts[] = {{"the", "scan", "of", "volume", "took"},
                                                                  {"für", "größe", "über", "Prüfung", "naïve"},
                                                                  {"объём", "снимок", "данных", "размер", "и"},
                                                                  {"画像", "データ", "測定", "の", "体積"},
                                                                  {"😀", "🩻", "𝛼𝛽", "ok", "🧠🧠"}};
    Sequence sequence;
    std::string text;
    while (text.size() < textSize) {
        const auto& script = scripts[sequence.below(10) < 5 ? 0 : sequence.below(5)];
        for (uint32_t words = 1 + sequence.below(6); words != 0; --words) {
            text += script[sequence.below(5)];
            text += ' ';
        }
    }
    return text;
}

inline std::string invalidText() {
    Sequence sequence;
    std::string text = mixedText();
    for (size_t at = 500; at < text.size(); at += 500 + sequence.below(1000)) text[at] = '\x96';
    return text;
}

inline std::string windows1252Text() {
    Sequence sequence;
    std::string text = asciiText();
    for (char& c : text) {
        if (sequence.below(8) == 0) c = "\xE4\xF6\xFC\xDF\xE9\x93\x94\x80"[sequence.below(8)];
    }
    return text;
}

struct Item {
    const char* name;
    std::string text;
    bool valid;
};

inline const std::array<Item, 4>& items() {
    static const std::array<Item, 4> all = {{{"ascii", asciiText(), true},
                                             {"mixed", mixedText(), true},
                                             {"invalid", invalidText(), false},
                                             {"windows1252", windows1252Text(), false}}};
    return all;
}

// Registers `<work>-<text>/<contestant>` for each text; `run` does the work once over (data, size),
// after `prepare` was called once.
template <class Run, class Prepare = void (*)()>
void add(
    const std::string& work, const std::string& contestant, Run run, Prepare prepare = [] {}) {
    for (const Item& item : items()) {
        // A validator stops at the first refused byte: there is no rate to tell.
        if (work == "validate" && !item.valid) continue;
        const std::string_view text = item.text;
        benchmark::RegisterBenchmark((work + '-' + item.name + '/' + contestant).c_str(),
                                     [run, prepare, text](benchmark::State& state) {
                                         prepare();
                                         for (auto _ : state) run(text.data(), text.size());
                                         const auto bytes = state.iterations() * static_cast<int64_t>(text.size());
                                         state.SetBytesProcessed(bytes);
                                     });
    }
}

} // namespace workload
