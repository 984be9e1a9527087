#pragma once

#include "kiv/core/Clock.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"

#include <algorithm>
#include <new>
#include <random>
#include <string>
#include <vector>

namespace support {

// What a store means when every key has its ancestors: nodes and their children, in order.
struct Tree {
    kiv::Item key, value;
    std::vector<Tree> children;

    size_t size() const {
        size_t count = 1;
        for (const Tree& child : children) count += child.size();
        return count;
    }
};

// Calls visit(node, parent or null, index below the parent) for every node, parents first.
template <class Visit>
void visitTree(const Tree& node, Visit visit, const Tree* parent = nullptr, size_t index = 0) {
    visit(node, parent, index);
    for (size_t i = 0; i < node.children.size(); ++i) visitTree(node.children[i], visit, &node, i);
}

// Random trees with elements of all kinds, of which some are too long for an item's own memory.
class TreeMaker {
public:
    explicit TreeMaker(unsigned seed) : m_random(seed) {}

    unsigned draw(unsigned end) { return static_cast<unsigned>(m_random() % end); }
    Tree make(int levels) { return make(levels, {}); }

private:
    Tree make(int levels, kiv::Item key) {
        Tree node{std::move(key), list(static_cast<int>(m_random())), {}};
        const unsigned count = levels > 0 ? draw(5) : 0;
        kiv::Set<kiv::Item> keys;
        for (unsigned i = 0; i < count; ++i) keys.insert(extended(node.key));
        for (const kiv::Item& child : keys) node.children.push_back(make(levels - 1, child));
        return node;
    }
    kiv::Item extended(kiv::Item key) {
        switch (draw(9)) {
        case 0:
            key.add(draw(4));
            break;
        case 1:
            key.add(static_cast<long long>(m_random()) - 0x80000000LL);
            break;
        case 2:
            key.add(draw(5) * 0.5);
            break;
        case 3:
            key.add(std::string(draw(20) == 0 ? 300 : draw(3), 'a').c_str());
            break;
        case 4:
            key.addPrefix("p");
            break;
        case 5:
            key.add(list(draw(2), "nested"));
            break;
        case 6:
            key.add(kiv::GUID(draw(3), 0, 0, draw(3)));
            break;
        case 7:
            key.addBuffer(key.getPlainBytePointer(), std::min(draw(50), key.getPlainSize()));
            break;
        default:
            key.addBool(draw(2) == 0);
        }
        return key;
    }

    std::mt19937 m_random;
};

inline void fill(kiv::Store& store, const Tree& tree) {
    visitTree(tree, [&](const Tree& node, const Tree*, size_t) { store.set(node.key, node.value); });
}

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
