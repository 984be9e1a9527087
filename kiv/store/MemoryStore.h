#pragma once

#include "kiv/store/Store.h"

#include <optional>

namespace kiv {

// A store in memory. `transactional` ones keep, for each open transaction, what its changes replaced, so that begin()
// costs nothing and commit() and rollback() cost what was changed; the others ignore begin() and commit().
// Copies copy everything, open transactions too. Threads: one at a time, for reading as well.
class KIV_API MemoryStore : public Store {
    KIV_OBJECT(MemoryStore, Store)
public:
    explicit MemoryStore(bool transactional);
    MemoryStore(const MemoryStore& other);
    // Leaves `other` empty, without transactions.
    MemoryStore(MemoryStore&& other);
    MemoryStore& operator=(const MemoryStore& other);
    MemoryStore& operator=(MemoryStore&& other);
    ~MemoryStore() override;

    bool good() const override;
    void set(const Item& key, const Item& value) override;
    const Item* get(const Item& key) override;
    void remove(const Item& from, const Item& to) override;
    bool next(const Item& key, Item& out) override;
    bool prev(const Item& key, Item& out) override;
    bool first(Item& out) override;
    void begin() override;
    void commit() override;
    void rollback() override;
    void close() override;
    void flush() override;
    int64_t getSizeInBytes() const override;

    bool isTransactional() const { return m_transactional; }
    // One more than there are open transactions.
    uint64_t getNumberOfLayers() const { return m_journals.size() + 1; }

private:
    using Journal = Map<Item, std::optional<Item>>;

    bool hand(Map<Item, Item>::const_iterator entry, Item& out);
    void remember(const Item& key, const std::optional<Item>& value);

    Map<Item, Item> m_data;
    Vector<Journal> m_journals; // one per open transaction, the innermost last
    bool m_transactional;
};

} // namespace kiv
