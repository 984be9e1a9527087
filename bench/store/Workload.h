#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

// The work of the race: 200,000 entries named by a text of 10 characters, a 64-bit and a 32-bit integer, each with 40
// bytes of value. Everything is drawn from one seed, in two forms: kiv has items, the others a text of bytes whose
// order is that of the items, three bytes shorter than theirs. Keys and values are made before a race begins.
namespace bench {

constexpr size_t entryCount = 200000;
constexpr size_t rangeLength = 100;
constexpr size_t valueSize = 40;

struct PlainKey {
    std::array<char, 11> text; // with its zero
    int64_t time;
    int32_t index;
};

// A table of series, each with five images at each of a hundred times.
class PlainEntries {
public:
    PlainEntries() {
        m_keys.reserve(entryCount);
        for (unsigned series = 0; series < 400; ++series) {
            for (int64_t time = 0; time < 100; ++time) {
                for (int32_t index = 0; index < 5; ++index) m_keys.push_back(key(series, time, index));
            }
        }
        std::mt19937_64 random(4711);
        m_values.resize(2 * entryCount);
        for (auto& value : m_values) {
            for (size_t i = 0; i < valueSize; i += 8) {
                const uint64_t bits = random();
                std::memcpy(&value[i], &bits, 8);
            }
            value[0] = 4; // the head of an item that holds one buffer
            const uint32_t size = valueSize - 5;
            std::memcpy(&value[1], &size, 4);
        }
        m_shuffled.resize(entryCount);
        for (size_t i = 0; i < entryCount; ++i) m_shuffled[i] = static_cast<uint32_t>(i);
        for (size_t i = entryCount - 1; i > 0; --i) std::swap(m_shuffled[i], m_shuffled[random() % (i + 1)]);
    }

    const PlainKey& key(size_t sorted) const { return m_keys[sorted]; }
    // A key that is not there, directly below that one.
    PlainKey below(size_t sorted) const {
        PlainKey result = m_keys[sorted];
        result.index -= 5;
        return result;
    }
    const std::array<uint8_t, valueSize>& value(size_t number) const { return m_values[number]; }
    // The order of insertion.
    size_t shuffled(size_t i) const { return m_shuffled[i]; }

private:
    static PlainKey key(unsigned series, int64_t time, int32_t index) {
        PlainKey result{};
        std::snprintf(result.text.data(), result.text.size(), "series %02u%c", series / 16, 'a' + series % 16);
        result.time = 1732190000123456 + series * 1000003 + time * 40000;
        result.index = 70000 + index * 10;
        return result;
    }

    std::vector<PlainKey> m_keys;
    std::vector<std::array<uint8_t, valueSize>> m_values;
    std::vector<uint32_t> m_shuffled;
};

inline const PlainEntries& plainEntries() {
    static const PlainEntries entries;
    return entries;
}

// Keys and values of contestants that know nothing but bytes.
struct Bytes {
    static constexpr size_t keySize = 23;
    using Key = std::array<char, keySize>;
    using Value = std::string_view;

    static Key key(const PlainKey& plain) {
        Key result;
        std::memcpy(result.data(), plain.text.data(), 11);
        const uint64_t time = static_cast<uint64_t>(plain.time) ^ (uint64_t{1} << 63);
        const uint32_t index = static_cast<uint32_t>(plain.index) ^ (uint32_t{1} << 31);
        for (unsigned i = 0; i < 8; ++i) result[11 + i] = static_cast<char>(time >> (56 - 8 * i));
        for (unsigned i = 0; i < 4; ++i) result[19 + i] = static_cast<char>(index >> (24 - 8 * i));
        return result;
    }
    static Value value(const std::array<uint8_t, valueSize>& bytes) {
        return {reinterpret_cast<const char*>(bytes.data()), valueSize};
    }
    static std::string_view view(const Key& key) { return {key.data(), keySize}; }
    // What maps are asked with.
    static std::string_view probe(const Key& key) { return view(key); }
    static std::string_view view(Value value) { return value; }
};

// Everything in the form of a contestant.
template <class Form>
class Workload {
public:
    using Key = typename Form::Key;
    using Value = typename Form::Value;
    struct Range {
        Key from; // not there itself
        Key to;   // the last of the hundred
    };

    static const Workload& get() {
        static const Workload workload;
        return workload;
    }

    std::vector<Key> sorted;         // keys in their order
    std::vector<Value> sortedValues; // and their values
    std::vector<Key> keys;           // the same in the order of insertion,
    std::vector<Value> values;       // and their values
    std::vector<Value> others;       // values to overwrite them with
    std::vector<Key> hits;           // keys that are there, in a third order
    std::vector<Key> misses;         // keys that are not, each beside one that is
    std::vector<Range> ranges;       // of a hundred entries each, anywhere

    static Range rangeAt(size_t at) {
        return {Form::key(plainEntries().below(at)), Form::key(plainEntries().key(at + rangeLength - 1))};
    }

private:
    Workload() {
        const PlainEntries& plain = plainEntries();
        std::mt19937_64 random(815);
        for (size_t i = 0; i < entryCount; ++i) {
            sorted.push_back(Form::key(plain.key(i)));
            sortedValues.push_back(Form::value(plain.value(i)));
        }
        for (size_t i = 0; i < entryCount; ++i) {
            const size_t at = plain.shuffled(i);
            keys.push_back(sorted[at]);
            values.push_back(Form::value(plain.value(at)));
            others.push_back(Form::value(plain.value(entryCount + at)));
            hits.push_back(sorted[random() % entryCount]);
            misses.push_back(Form::key(plain.below(random() % entryCount)));
        }
        for (size_t i = 0; i < entryCount / 10; ++i) {
            ranges.push_back(rangeAt(random() % (entryCount - rangeLength)));
        }
    }
};

// What a reader must touch of a key or a value.
inline uint64_t head(const void* bytes) {
    uint64_t result;
    std::memcpy(&result, bytes, 8);
    return result;
}

[[noreturn]] inline void fail(const char* contestant, const char* what) {
    std::fprintf(stderr, "%s: %s\n", contestant, what);
    std::abort();
}

} // namespace bench
