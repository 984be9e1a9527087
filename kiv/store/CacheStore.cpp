#include "kiv/store/CacheStore.h"

#include "kiv/core/Fnv.h"
#include "kiv/store/CanonicalKey.h"
#include "kiv/store/RecencyCache.h"

#include <utility>

namespace kiv {

namespace {

using internal::CanonicalKey;
using internal::RecencyCache;

uint32_t hashOf(const ConstByteSpan& key) {
    return internal::fnv1a32(key.getBytePointer(), key.getSize());
}

} // namespace

CacheStore::CacheStore(Store* backing) : m_backing(backing) {
    if (!backing) return;
    m_cache = std::make_unique<RecencyCache>();
    m_keys = std::make_unique<CanonicalKey>();
}

CacheStore::CacheStore(const CacheStore& other) : CacheStore(other.m_backing.get()) {
    m_hits = other.m_hits;
    m_misses = other.m_misses;
    if (m_cache) m_cache->copyFrom(*other.m_cache, this);
}

CacheStore::CacheStore(CacheStore&& other) noexcept : CacheStore(nullptr) {
    *this = std::move(other);
}

CacheStore& CacheStore::operator=(const CacheStore& other) {
    if (this != &other) *this = CacheStore(other);
    return *this;
}

CacheStore& CacheStore::operator=(CacheStore&& other) noexcept {
    if (this == &other) return *this;
    m_hits = std::exchange(other.m_hits, 0);
    m_misses = std::exchange(other.m_misses, 0);
    m_cache = std::move(other.m_cache);
    m_keys = std::move(other.m_keys);
    if (m_cache) m_cache->bindTo(this);
    m_backing = std::move(other.m_backing); // last: a store that goes with it may be the end of much
    return *this;
}

CacheStore::~CacheStore() = default;

bool CacheStore::good() const {
    return m_backing && m_backing->good();
}

const Item* CacheStore::get(const Item& key) {
    if (!m_backing) return nullptr;
    const ConstByteSpan canonical = m_keys->of(key);
    const uint32_t hash = hashOf(canonical);
    const RecencyCache::Entry* entry = m_cache->find(canonical, hash);
    if (!entry) return getFromBacking(key, canonical, hash);
    ++m_hits;
    return entry->value.getStore() ? &entry->value : nullptr;
}

// The backing store is asked before there is an entry, so that an exception leaves none without its value.
KIV_NOINLINE const Item* CacheStore::getFromBacking(const Item& key, const ConstByteSpan& canonical, uint32_t hash) {
    ++m_misses;
    const Item* value = m_backing->get(key);
    const RecencyCache::Entry& made = m_cache->add(canonical, hash, value, this);
    return value ? &made.value : nullptr;
}

// Key and value may be what get() handed out, in an entry that is about to be overwritten. So the backing store gets
// the entry's key, or a copy where the bytes differ. The entry comes first, as the value may lie in the backing store.
void CacheStore::set(const Item& key, const Item& value) {
    if (!m_backing) return;
    const ConstByteSpan canonical = m_keys->of(key);
    const bool same = canonical.getBytePointer() == key.getPlainBytePointer();
    const Item original = same ? Item() : key;
    const uint32_t hash = hashOf(canonical);
    RecencyCache::Entry* entry = m_cache->find(canonical, hash);
    if (entry) {
        entry->value.setPlain(value);
        entry->value.setStore(this);
    } else {
        entry = &m_cache->add(canonical, hash, &value, this);
    }
    try {
        m_backing->set(same ? entry->key : original, entry->value);
    } catch (...) { // what is stored now is known to the backing store alone
        m_cache->dropFirst();
        throw;
    }
}

void CacheStore::remove(const Item& from, const Item& to) {
    if (!m_backing) return;
    m_cache->clear();
    m_backing->remove(from, to);
}

void CacheStore::rollback() {
    if (!m_backing) return;
    m_cache->clear(); // before, so that it is done even if the backing store throws
    m_backing->rollback();
}

void CacheStore::invalidate() {
    if (m_cache) m_cache->clear();
}

bool CacheStore::bind(bool found, Item& out) {
    if (found) out.setStore(this);
    return found;
}

bool CacheStore::next(const Item& key, Item& out) {
    return m_backing && bind(m_backing->next(key, out), out);
}

bool CacheStore::prev(const Item& key, Item& out) {
    return m_backing && bind(m_backing->prev(key, out), out);
}

bool CacheStore::first(Item& out) {
    return m_backing && bind(m_backing->first(out), out);
}

void CacheStore::begin() {
    if (m_backing) m_backing->begin();
}

void CacheStore::commit() {
    if (m_backing) m_backing->commit();
}

void CacheStore::close() {
    if (m_backing) m_backing->close();
}

void CacheStore::flush() {
    if (m_backing) m_backing->flush();
}

int64_t CacheStore::getSizeInBytes() const {
    return m_backing ? m_backing->getSizeInBytes() : 0;
}

} // namespace kiv
