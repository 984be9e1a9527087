#include "Silence.h"

#include "kiv/core/SmartPointer.h"
#include "kiv/data/Item.h"
#include "kiv/store/MemoryStore.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace kiv;

void require(bool holds) {
    if (!holds) std::abort();
}

struct Order {
    bool operator()(const Item& a, const Item& b) const { return Item::compareTotal(a, b) < 0; }
};
using Content = std::map<Item, Item, Order>;

bool isSame(const Item& a, const Item& b) {
    return a.getPlainSize() == b.getPlainSize() &&
           std::memcmp(a.getPlainBytePointer(), b.getPlainBytePointer(), a.getPlainSize()) == 0;
}

// The input cut into numbers, keys and values; zeros and empty pieces behind its end.
class Pieces {
public:
    Pieces(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}
    bool empty() const { return m_left == 0; }
    unsigned number() {
        if (m_left == 0) return 0;
        --m_left;
        return *m_data++;
    }
    // Mostly as it is in the input; one of the keys before it, as it is or with more behind; or long.
    Item key() {
        const unsigned form = number();
        Item key;
        if (form >= 0x80 && !m_keys.empty()) {
            key = m_keys[form % m_keys.size()];
            if (number() % 2 == 0) return key;
        } else if (form >= 0x70) {
            const std::string filling(number() * 12, static_cast<char>(number()));
            key.addBuffer(reinterpret_cast<const uint8_t*>(filling.data()), static_cast<unsigned>(filling.size()));
        }
        const size_t size = std::min<size_t>(form % 32, m_left);
        key.concatItem(Item(Item::ExternalBufferMode(), {m_data, static_cast<unsigned>(size)}));
        m_data += size;
        m_left -= size;
        if (key.getPlainSize() < 4000) m_keys.push_back(key);
        return key;
    }
    Item value() {
        const unsigned size = number();
        const std::vector<uint8_t> bytes(size < 0xE0 ? size : (size - 0xDF) * 64, static_cast<uint8_t>(number()));
        return Item(Item::PlainMode(), {bytes.data(), static_cast<unsigned>(bytes.size())});
    }

private:
    const uint8_t* m_data;
    size_t m_left;
    std::vector<Item> m_keys;
};

// A store and beside it a map that the same is done to. Transactions of the map are copies.
class Twins {
public:
    void set(const Item& key, const Item& value) {
        m_content[key] = value;
        m_store->set(key, value);
    }
    void remove(const Item& from, const Item& to) {
        if (!Order()(to, from)) m_content.erase(m_content.lower_bound(from), m_content.upper_bound(to));
        m_store->remove(from, to);
    }
    const Item* get(const Item& key) {
        const Item* value = m_store->get(key);
        const auto expected = m_content.find(key);
        require((value != nullptr) == (expected != m_content.end()));
        if (value) require(isSame(*value, expected->second) && value->getStore() == m_store.get());
        return value;
    }
    void step(Item key) {
        Item out;
        const auto above = m_content.upper_bound(key), from = m_content.lower_bound(key);
        const bool hasPrevious = m_store->prev(key, out);
        require(hasPrevious == (from != m_content.begin()));
        if (hasPrevious) require(isSame(out, std::prev(from)->first));
        const bool hasNext = m_store->next(key, key);
        require(hasNext == (above != m_content.end()));
        if (hasNext) require(isSame(key, above->first));
    }
    void begin() {
        if (m_snapshots.size() == 4) return;
        m_store->begin();
        m_snapshots.push_back(m_content);
    }
    void commit() {
        m_store->commit();
        if (!m_snapshots.empty()) m_snapshots.pop_back();
    }
    void rollback() {
        m_store->rollback();
        if (m_snapshots.empty()) return;
        m_content = std::move(m_snapshots.back());
        m_snapshots.pop_back();
        compare();
    }
    void copy() {
        const SmartPointer<MemoryStore> copy(new MemoryStore(*m_store));
        m_store->set("gone", "with its store");
        m_store = copy;
    }
    bool inTransaction() const { return !m_snapshots.empty(); }
    size_t size() const { return m_content.size(); }

    // Walks both ways.
    void compare() {
        require(m_store->lastData().getCount() == m_content.size());
        Item key;
        auto expected = m_content.begin();
        for (bool more = m_store->first(key); more; more = m_store->next(key, key), ++expected) {
            require(expected != m_content.end() && isSame(key, expected->first));
            require(isSame(*m_store->get(key), expected->second));
        }
        require(expected == m_content.end());
        if (m_content.empty()) return;
        key = m_content.rbegin()->first;
        for (auto it = std::next(m_content.rbegin()); it != m_content.rend(); ++it) {
            require(m_store->prev(key, key) && isSame(key, it->first));
        }
        require(!m_store->prev(key, key));
    }

private:
    SmartPointer<MemoryStore> m_store{new MemoryStore(true)};
    Content m_content;
    std::vector<Content> m_snapshots;
};

void operate(Twins& twins, Pieces& pieces) {
    switch (pieces.number() % 16) {
    case 0:
        return twins.begin();
    case 1:
        return twins.commit();
    case 2:
        return twins.rollback();
    case 3: {
        const Item key = pieces.key();
        return twins.remove(key, key);
    }
    case 4: {
        const Item from = pieces.key(), to = pieces.key();
        return twins.remove(from, to);
    }
    case 5: // below a key
    {
        const Item from = pieces.key();
        Item to = from;
        to.concatItem(Item(Item::PlainMode(), {reinterpret_cast<const uint8_t*>("\xFF"), 1}));
        return twins.remove(from, to);
    }
    case 6: {
        const Item key = pieces.key();
        twins.get(key);
        return twins.step(key);
    }
    case 7: // views as arguments
    {
        const Item key = pieces.key();
        const Item *a = twins.get(pieces.key()), *b = twins.get(pieces.key());
        if (a && b) return twins.set(*a, *b);
        if (a && pieces.number() % 2) return twins.remove(*a, key);
        if (!a) return;
        const unsigned size = a->getPlainSize() * pieces.number() / 255;
        return twins.set(key, Item(Item::ExternalBufferMode(), {a->getPlainBytePointer(), size}));
    }
    case 8:
    case 9:
    case 10: // in ascending or descending order
    {
        Item base = pieces.key();
        const Item value = pieces.value();
        const int count = static_cast<int>(pieces.number()), from = static_cast<int>(pieces.number());
        const int step = from % 2 ? 1 : -1;
        if (twins.size() > 3000) return;
        for (int i = 0; i < count; ++i) {
            Item key = base;
            key.add(from + step * i);
            twins.set(key, value);
        }
        return;
    }
    case 11:
        return pieces.number() % 8 == 0 ? twins.copy() : twins.compare();
    default:
        const Item key = pieces.key();
        return twins.set(key, pieces.value());
    }
}

} // namespace

// Any operations with any keys on a store do what they do to a map.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Pieces pieces(data, std::min<size_t>(size, 4096));
    Twins twins;
    while (!pieces.empty()) operate(twins, pieces);
    twins.compare();
    while (twins.inTransaction()) twins.rollback();
    return 0;
}
