#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/store/Store.h"

#include <memory>

namespace kiv {

namespace internal {
class CanonicalKey;
class RecencyCache;
} // namespace internal

// The 8192 most recently used entries of another store, for reading; also that a key is absent. Changes are written
// through, so that nothing is ever unwritten. Keys and values that it hands out are bound to it.
// While it is used, the backing store must be changed through it alone, transactions included: it does not see other
// changes, nor those made through a second cache. Whoever made one calls invalidate().
// Ownership: keeps the backing store. Without one (null, or moved from) it is not good() and does nothing. Threads: one
// at a time, for reading as well. Failures: the backing store's exceptions go on; nothing is remembered of that key.
class KIV_API CacheStore : public Store {
    KIV_OBJECT(CacheStore, Store)
public:
    explicit CacheStore(Store* backing);
    // Copies share the backing store and start with the same entries and counts. The two don't see each other's
    // changes.
    CacheStore(const CacheStore& other);
    CacheStore(CacheStore&& other) noexcept;
    CacheStore& operator=(const CacheStore& other);
    CacheStore& operator=(CacheStore&& other) noexcept;
    ~CacheStore() override;

    bool good() const override;
    void set(const Item& key, const Item& value) override;
    // Valid until the next change, or until as many other keys were asked for as the cache holds.
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

    // Forgets all entries, in constant time. Needed after the backing store was changed by other ways.
    void invalidate();

    Store* getBackingStore() const { return m_backing.get(); }
    // Of get(): how often the cache knew the answer, and how often the backing store was asked.
    uint32_t getHitCount() const { return m_hits; }
    uint32_t getMissCount() const { return m_misses; }

private:
    const Item* getFromBacking(const Item& key, const ConstByteSpan& canonical, uint32_t hash);
    bool bind(bool found, Item& out);

    uint32_t m_hits = 0;
    uint32_t m_misses = 0;
    SmartPointer<Store> m_backing;
    // Both there when the backing store is.
    std::unique_ptr<internal::RecencyCache> m_cache;
    std::unique_ptr<internal::CanonicalKey> m_keys;
};

} // namespace kiv
