#pragma once

#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"
#include "tests/support/OutputCapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace support {

// Same bytes, not only equal in the order of keys.
inline bool isSame(const kiv::Item& a, const kiv::Item& b) {
    return a.getPlainSize() == b.getPlainSize() &&
           std::memcmp(a.getPlainBytePointer(), b.getPlainBytePointer(), a.getPlainSize()) == 0;
}

// A store and beside it a map that the same is done to; what differs is a failure of the test. Transactions of the map
// are copies.
class StoreModel {
public:
    struct Order {
        bool operator()(const kiv::Item& a, const kiv::Item& b) const { return kiv::Item::compareTotal(a, b) < 0; }
    };
    using Content = std::map<kiv::Item, kiv::Item, Order>;

    StoreModel(kiv::Store& store, bool transactional)
        : m_store(store), m_memory(dynamic_cast<kiv::MemoryStore*>(&store)), m_transactional(transactional) {}

    const Content& content() const { return m_content; }
    kiv::Store& store() { return m_store; }
    size_t depth() const { return m_snapshots.size(); }

    void set(const kiv::Item& key, const kiv::Item& value) {
        // First the model: the arguments may be the store's own.
        m_content[key] = value;
        m_store.set(key, value);
    }
    void remove(const kiv::Item& from, const kiv::Item& to) {
        if (!Order()(to, from)) m_content.erase(m_content.lower_bound(from), m_content.upper_bound(to));
        m_store.remove(from, to);
    }
    // Returns what the store did.
    const kiv::Item* get(const kiv::Item& key) {
        const kiv::Item* value = m_store.get(key);
        const auto expected = m_content.find(key);
        check((value != nullptr) == (expected != m_content.end()), "get finds", key);
        if (value && expected != m_content.end()) checkValue(key, *value, expected->second);
        return value;
    }
    void checkValue(const kiv::Item& key, const kiv::Item& value, const kiv::Item& expected) const {
        check(isSame(value, expected), "value of", key);
        check(value.getStore() == &m_store, "store of the value of", key);
    }
    void next(const kiv::Item& key) {
        kiv::Item out;
        const bool found = m_store.next(key, out);
        walk(key, out, found, m_content.upper_bound(key), "next");
    }
    void prev(const kiv::Item& key) {
        kiv::Item out;
        const bool found = m_store.prev(key, out);
        walk(key, out, found, before(m_content.lower_bound(key)), "prev");
    }
    void first() {
        kiv::Item out;
        const bool found = m_store.first(out);
        walk(kiv::Item(), out, found, m_content.begin(), "first");
    }
    // The same, with one object for key and result.
    void nextInPlace(kiv::Item key) {
        const kiv::Item original(key);
        const bool found = m_store.next(key, key);
        walk(original, key, found, m_content.upper_bound(original), "next in place");
    }
    void prevInPlace(kiv::Item key) {
        const kiv::Item original = key;
        const bool found = m_store.prev(key, key);
        walk(original, key, found, before(m_content.lower_bound(original)), "prev in place");
    }

    void begin() {
        m_store.begin();
        if (m_transactional) m_snapshots.push_back(m_content);
        checkLayers();
    }
    void commit() {
        m_store.commit();
        if (m_transactional && m_snapshots.empty()) {
            EXPECT_EQ(console.take(), "[ERROR] memorystore, commit without begin\n");
        } else if (m_transactional) {
            m_snapshots.pop_back();
        }
        checkLayers();
    }
    void rollback() {
        m_store.rollback();
        if (!m_transactional) {
            EXPECT_EQ(console.take(), "[ERROR] memorystore, rollback called in transactionless mode\n");
        } else if (m_snapshots.empty()) {
            EXPECT_EQ(console.take(), "[ERROR] memorystore, rollback without begin\n");
        } else {
            m_content = std::move(m_snapshots.back());
            m_snapshots.pop_back();
        }
        checkLayers();
        compare();
    }

    // All of the other, or all but what is at and below the keys of `exclude` or holds a marker.
    void copyFrom(StoreModel& source, const kiv::Set<kiv::Item>* exclude) {
        size_t count = 0;
        for (const auto& [key, value] : source.m_content) {
            if (exclude && isLeftOut(key, *exclude)) continue;
            m_content[key] = value;
            ++count;
        }
        exclude ? m_store.copyFrom(&source.m_store, *exclude) : m_store.copyFrom(&source.m_store);
        const std::string log = source.console.take() + console.take();
        EXPECT_NE(log.find("[STORE] copied " + std::to_string(count) + " items in "), log.npos) << log;
        checkLayers();
        compare();
    }

    // Takes all through a copy or a move and back, transactions included; nothing else may be left of that.
    void relocate(bool moves) {
        if (!m_memory) return;
        kiv::MemoryStore assigned(!m_transactional), taken(false);
        assigned.set("old", "gone"), assigned.begin();
        if (moves) {
            taken = kiv::MemoryStore(std::move(*m_memory));
            EXPECT_TRUE(m_memory->getNumberOfLayers() == 1 && m_memory->isTransactional() == m_transactional);
            kiv::Item key;
            EXPECT_FALSE(m_memory->first(key) || m_memory->next(kiv::Item(), key));
            m_memory->begin(), m_memory->set("fresh", 1);
            assigned = std::move(taken);
        } else {
            kiv::MemoryStore copied(*m_memory);
            assigned = copied;
            copied.remove(kiv::Item(), behindAll()), copied.commit();
            m_memory->remove(kiv::Item(), behindAll());
        }
        const auto& self = assigned;
        assigned = self;
        EXPECT_EQ(assigned.isTransactional(), m_transactional);
        *m_memory = std::move(assigned);
        console.take();
        checkLayers();
        compare();
    }

    // A key that was handed out belongs to the caller: changes of the store leave it alone.
    void checkKept() const { check(isSame(m_kept, m_keptBytes), "key changed after it was handed out:", m_keptBytes); }

    // Walks all of the store in both directions.
    void compare() {
        kiv::Item key("before");
        auto expected = m_content.begin();
        for (bool more = m_store.first(key); more; more = m_store.next(key, key), ++expected) {
            if (!check(expected != m_content.end() && isSame(key, expected->first), "walking forwards, at", key))
                return;
            check(key.getStore() == &m_store, "store of the key", key);
            const kiv::Item* value = m_store.get(key);
            if (!check(value != nullptr, "walking forwards, no value at", key)) return;
            checkValue(key, *value, expected->second);
        }
        check(expected == m_content.end(), "the walk forwards ends early, behind", key);
        key = behindAll();
        auto reverse = m_content.rbegin();
        for (; m_store.prev(key, key); ++reverse) {
            if (!check(reverse != m_content.rend() && isSame(key, reverse->first), "walking backwards, at", key))
                return;
        }
        check(reverse == m_content.rend(), "the walk backwards ends early, before", key);
    }

    OutputCapture console;

private:
    bool check(bool holds, const char* what, const kiv::Item& key) const {
        if (!holds) ADD_FAILURE() << what << " " << key.asString() << " " << key.getBase16().substr(0, 200);
        return holds;
    }
    static bool isLeftOut(const kiv::Item& key, const kiv::Set<kiv::Item>& exclude) {
        for (auto it = key.getIterator(); it.hasNextElement(); it.skip()) {
            if (it.getType() >= kiv::ValueType::Meta) return true;
        }
        if (exclude.count(key)) return true;
        for (int depth = key.getDepth(); depth >= 0; --depth) {
            kiv::Item ancestor = key;
            ancestor.reduceDepthTo(depth);
            if (exclude.count(ancestor)) return true;
        }
        return false;
    }
    void checkLayers() {
        if (m_memory) {
            EXPECT_EQ(m_memory->getNumberOfLayers(), depth() + 1);
        }
    }
    Content::const_iterator before(Content::const_iterator at) const {
        return at == m_content.begin() ? m_content.end() : std::prev(at);
    }
    static kiv::Item behindAll() { return plain(std::string(64, '\xFF')); }
    // `out` is what the store found from `key` on, or as it was.
    void walk(const kiv::Item& key, kiv::Item& out, bool found, Content::const_iterator expected, const char* what) {
        if (!check(found == (expected != m_content.end()), what, key)) return;
        if (!found) {
            check(out.empty() || isSame(out, key), "a miss leaves its result alone:", out);
            return;
        }
        check(isSame(out, expected->first), what, key);
        check(out.getStore() == &m_store, "store of the key", out);
        m_kept = std::move(out); // as it is: a copy would own its bytes
        m_keptBytes = m_kept;
    }

    kiv::Store& m_store;
    kiv::MemoryStore* const m_memory;
    const bool m_transactional;
    Content m_content;
    std::vector<Content> m_snapshots; // one per open transaction
    kiv::Item m_kept;                 // the last key that was handed out
    kiv::Item m_keptBytes;            // its copy
};

} // namespace support
