#pragma once

#include "kiv/data/Item.h"
#include "tests/data/Items.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace support {

// The same numbers on every system, unlike the standard distributions.
class Random {
public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    uint64_t next() {
        uint64_t word = m_state += 0x9E3779B97F4A7C15;
        word = (word ^ (word >> 30)) * 0xBF58476D1CE4E5B9;
        word = (word ^ (word >> 27)) * 0x94D049BB133111EB;
        return word ^ (word >> 31);
    }
    // Requires: limit > 0.
    size_t below(size_t limit) { return static_cast<size_t>(next() % limit); }
    bool oneIn(size_t times) { return below(times) == 0; }
    template <class T, size_t N>
    const T& oneOf(const T (&values)[N]) {
        return values[below(N)];
    }

private:
    uint64_t m_state;
};

// Draws keys of all kinds of elements, and hands them out again later, so that a store of them has hits. Values are
// bytes of all lengths.
class RandomKeys {
public:
    RandomKeys(uint64_t seed, size_t poolSize) : random(seed), m_poolSize(poolSize) {
        for (size_t i = 0; i < 65536 / 8; ++i) {
            const uint64_t word = random.next();
            m_bytes.append(reinterpret_cast<const char*>(&word), 8);
        }
        startSequence();
    }

    // Mostly one that was handed out before.
    kiv::Item key() {
        if (m_pool.size() < m_poolSize) return m_pool.emplace_back(freshKey());
        if (random.oneIn(10)) return m_pool[random.below(m_poolSize)] = freshKey();
        const kiv::Item& known = m_pool[random.below(m_pool.size())];
        return random.oneIn(8) ? disguised(known) : known;
    }
    kiv::Item value() {
        size_t limit = 48;
        if (random.oneIn(20)) limit = 600;
        if (random.oneIn(400)) limit = 40000;
        const size_t size = random.below(limit);
        return plain(m_bytes.substr(random.below(m_bytes.size() - size), size));
    }

    // Keys in ascending order, one after another behind a common beginning.
    void startSequence() {
        m_sequence = random.oneIn(2) ? list(std::string(800, 'x')) : element(0);
        m_next = static_cast<long long>(random.below(5000)) - 300;
    }
    kiv::Item nextOfSequence() { return joined(m_sequence, list(m_next++)); }

    // Encoded otherwise, but equal in the order of keys.
    kiv::Item disguised(const kiv::Item& item) {
        kiv::Item other;
        auto it = item.getIterator();
        while (it.hasNextElement()) {
            long long integer = 0;
            double number = 0;
            kiv::Item nested;
            if (it.asInteger(integer)) {
                addWide(other, integer);
            } else if (it.asFloat(number)) {
                other.addFloat(std::isnan(number) || number == 0 ? -number : number);
            } else if (it.asWeakSubItem(nested)) {
                other.addItem(disguised(nested));
            } else {
                it.extract(nested);
                other.concatItem(nested);
            }
        }
        const unsigned rest = static_cast<unsigned>(it.getOffset());
        other.concatItem(kiv::Item(kiv::Item::ExternalBufferMode(),
                                   {item.getPlainBytePointer() + rest, item.getPlainSize() - rest}));
        return other;
    }

    Random random;

private:
    kiv::Item freshKey() {
        if (random.oneIn(100)) return kiv::Item();
        if (random.oneIn(6)) return nextOfSequence();
        kiv::Item key;
        // Below and beside others of the pool, so that there are subtrees.
        if (!m_pool.empty() && random.oneIn(2)) key = m_pool[random.below(m_pool.size())];
        if (key.getPlainSize() > 6000) key.clear();
        if (random.oneIn(3)) key.parent();
        for (size_t i = random.below(4); i > 0; --i) key.concatItem(element(0));
        if (random.oneIn(100)) key.concatItem(longElement());
        if (random.oneIn(40)) key = deep(key);
        if (random.oneIn(16)) key.concatItem(undecodable());
        return key;
    }

    static kiv::Item deep(kiv::Item item) {
        for (int i = 0; i < 20; ++i) item = list(item);
        return item;
    }
    static void addWide(kiv::Item& item, long long value) {
        item.concatItem(plain('\x01' + std::string(reinterpret_cast<const char*>(&value), sizeof(value))));
    }

    kiv::Item undecodable() {
        using namespace std::string_literals;
        // clang-format off
        static const std::string cut[] = {
            "\x03"s, "\x03text"s, "\x0C" "a"s, "\x04\x08\0\0\0ab"s, "\x09\xFF\xFF\xFF\xFF"s, "\x05\xFB\xFF\xFF\xFF\x01"s,
            "\xC1\x01\0"s, "\x01\x05\0\0"s, "\x08"s, "\x0A\x01"s, "\0"s, "\0\xFF"s, "\x0F"s, "\xBF" "rest"s, "\xFD\xFD"s};
        // clang-format on
        return plain(random.oneOf(cut));
    }

    kiv::Item longElement() {
        const size_t size = 1000 + random.below(5000);
        if (random.oneIn(2)) return list(std::string(size, 'x') + static_cast<char>('a' + random.below(3)));
        return made([&](kiv::Item& item) {
            item.addBuffer(reinterpret_cast<const uint8_t*>(m_bytes.data()), static_cast<unsigned>(size));
        });
    }

    std::string text() {
        static const char* const texts[] = {"", "a", "aa", "ab", "b", "\xC3\xA4", "\xFF", "z"};
        if (!random.oneIn(3)) return random.oneOf(texts);
        return "/data/studies/of/one/patient/with/long/names/" + std::to_string(random.below(40));
    }

    std::string shortBytes() {
        static const char bytes[] = {'\0', '\xFF', 'a'};
        std::string all;
        for (size_t i = random.below(random.oneIn(5) ? 24 : 4); i > 0; --i) all += random.oneOf(bytes);
        return all;
    }

    long long integer() {
        if (!random.oneIn(3)) return static_cast<long long>(random.below(16)) - 4;
        const auto power = static_cast<long long>(uint64_t{1} << random.below(64));
        return random.oneIn(2) ? power : ~power;
    }

    double number() {
        static constexpr double numbers[] = {0.0, -0.0, 1.0, -1.0, 0.5, 1e300, INFINITY, -INFINITY, 5e-324, NAN};
        return random.oneOf(numbers);
    }

    // One element, or now and then none.
    kiv::Item element(int depth) {
        static const char* const marks[] = {"\x0B", "\x0D", "\x0E", "\xC0", "\xFE", "\xFF"};
        kiv::Item item;
        const std::string bytes = shortBytes();
        const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
        const auto size = static_cast<unsigned>(bytes.size());
        const size_t kind = random.below(16);
        if (kind < 3) item.addInteger(integer());
        if (kind == 3) addWide(item, integer());
        if (kind == 4) item.addFloat(number());
        if (kind >= 5 && kind < 8) item.addString(text().c_str());
        if (kind == 8) item.addPrefix(text().c_str());
        if (kind == 9) item.addBuffer(data, size);
        if (kind == 10) item.addPointer(data, size);
        if (kind == 11) item.addReferee(data, size);
        if (kind == 12) item.addGUID(kiv::GUID(random.below(3), random.below(2) << 63, 0, random.below(3)));
        if (kind == 13) item.concatItem(plain(random.oneOf(marks)));
        if (kind > 13 && depth < 4) item.addItem(nested(depth + 1));
        return item;
    }

    kiv::Item nested(int depth) {
        kiv::Item item;
        for (size_t i = random.below(3); i > 0; --i) item.concatItem(element(depth));
        if (random.oneIn(16)) item.concatItem(undecodable());
        return item;
    }

    const size_t m_poolSize;
    std::vector<kiv::Item> m_pool;
    std::string m_bytes; // that values are cut from
    kiv::Item m_sequence;
    long long m_next = 0;
};

} // namespace support
