#pragma once

#include "kiv/core/Clock.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/RandomKeys.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

namespace support {

// Random entries with all their ancestors, and the children of each key, in order.
struct RandomTree {
    explicit RandomTree(uint64_t seed) {
        RandomKeys keys(seed, 60);
        for (int i = 0; i < 90; ++i) {
            kiv::Item key = keys.key();
            if (!key.isCleanKey()) continue;
            do {
                entries.emplace(key, keys.value());
            } while (key.parent());
        }
        for (const auto& [key, value] : entries) {
            kiv::Item parent;
            if (key.parent(parent)) children[parent].push_back(key);
        }
    }
    void fill(kiv::Store& store) const {
        for (const auto& [key, value] : entries) store.set(key, value);
    }

    kiv::Map<kiv::Item, kiv::Item> entries;
    kiv::Map<kiv::Item, std::vector<kiv::Item>> children;
};

// Every entry as text, in order.
inline std::vector<std::string> contentOf(kiv::Store& store) {
    std::vector<std::string> lines;
    kiv::Item key;
    for (bool more = store.first(key); more; more = store.next(key, key)) {
        const kiv::Item* value = store.get(key);
        lines.push_back((key.asString() + " = " + (value ? value->asString() : "nothing")).to_std_string());
    }
    return lines;
}

// Notes down what changes it, a word a call, and spoils what it handed out then; runs out of memory when told to.
class WatchedStore : public kiv::MemoryStore {
public:
    explicit WatchedStore(bool transactional = true) : MemoryStore(transactional) {}

    const kiv::Item* get(const kiv::Item& key) override {
        const kiv::Item* value = MemoryStore::get(key);
        if (value) m_handedOut = *value;
        return value ? &m_handedOut : nullptr;
    }
    void set(const kiv::Item& key, const kiv::Item& value) override {
        spoil();
        if (setsLeft-- == 0) throw std::bad_alloc();
        calls += "set" + key.asBrowsableString().to_std_string() + " ";
        MemoryStore::set(key, value);
    }
    void remove(const kiv::Item& from, const kiv::Item& to) override {
        spoil();
        calls += "remove ";
        MemoryStore::remove(from, to);
    }
    void begin() override {
        calls += "begin ";
        MemoryStore::begin();
    }
    void commit() override {
        calls += "commit ";
        MemoryStore::commit();
    }
    void rollback() override {
        calls += "rollback ";
        MemoryStore::rollback();
    }
    void flush() override { calls += "flush "; }

    std::string calls;
    int setsLeft = -1;

private:
    void spoil() { std::fill_n(m_handedOut.getPlainBytePointer(), m_handedOut.getPlainSize(), uint8_t{0xFF}); }

    kiv::Item m_handedOut;
};

} // namespace support
