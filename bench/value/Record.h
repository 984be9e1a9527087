#pragma once

#include <array>
#include <cstdint>
#include <string>

// The work of the race: encode a record, decode all its fields, compare two encodings in the order of their fields; and
// compare short keys as the nodes of a tree do.
namespace bench {

struct Record {
    std::string text = "scanner 7, left coil";
    int64_t series = 42;
    int64_t position = -70000;
    int64_t time = 1732190000123456;
    double spacing = 0.4375;
    std::array<uint8_t, 32> digest{};
    std::array<int32_t, 8> window{1, 2, 3, 500, 6, 70, -8, 9};

    Record() {
        for (size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<uint8_t>(i * 37 + 11);
    }
};

// What a decoder must touch: one number that depends on every field.
class Sum {
public:
    void add(int64_t value) { m_sum = m_sum * 31 + value; }
    void add(double value) { m_sum += static_cast<int64_t>(value * 16); }
    void add(const char* text, size_t size) { m_sum += static_cast<int64_t>(size) + text[0] + text[size - 1]; }
    void add(const uint8_t* bytes, size_t size) { m_sum += static_cast<int64_t>(size) + bytes[0] + bytes[size - 1]; }
    int64_t get() const { return m_sum; }

private:
    int64_t m_sum = 0;
};

inline int64_t sumOf(const Record& record) {
    Sum sum;
    sum.add(record.text.data(), record.text.size());
    sum.add(record.series);
    sum.add(record.position);
    sum.add(record.time);
    sum.add(record.spacing);
    sum.add(record.digest.data(), record.digest.size());
    for (const int32_t value : record.window) sum.add(int64_t{value});
    return sum.get();
}

// The record that differs from the usual one in the last number of its list.
inline Record lateDifferent() {
    Record record;
    record.window.back() = 10;
    return record;
}

// A key below the same first level as others, but elsewhere on the second.
struct Key {
    std::string text = "series 17a";
    int64_t time = 1732190000123456;
    int32_t index = 70001;
};

inline Key nextKey() {
    Key key;
    key.time += 1000;
    return key;
}

} // namespace bench
