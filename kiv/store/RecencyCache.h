#pragma once

#include "kiv/data/Item.h"

#include <cstddef>
#include <new>

namespace kiv {

class Store;

namespace internal {

// The entries of a CacheStore: keys in canonical form and values, the least recently used of 8192 giving way.
// The bytes of a key pick one of 1024 buckets of 16 slots by their hash (fewer buckets while there are few entries); a
// full bucket spills into the next. Slots, links of the recency list and entries lie apart, so that a look-up reads one
// line of each, and refer to entries by index. Slots of an earlier generation are empty, and nodes go to the free pool
// as the list they are: clear() costs the same however much there is. Entries stay where they are and keep their
// buffers. Of the 1.2 MB only what entries need is touched.
class KIV_API RecencyCache {
public:
    struct Entry {
        Item key;
        Item value; // bound to the cache store; to none where the backing store has no such key
    };

    RecencyCache();
    RecencyCache(const RecencyCache&) = delete;
    RecencyCache& operator=(const RecencyCache&) = delete;
    ~RecencyCache();

    // Null, or the entry, which becomes the most recently used.
    inline Entry* find(const ConstByteSpan& key, uint32_t hash);
    // Makes an entry for a key that has none; `value` may be null. Both may lie in the value that gives way. Nothing
    // changes but for that one when memory runs out.
    Entry& add(const ConstByteSpan& key, uint32_t hash, const Item* value, Store* owner);
    // Forgets the entry, which was the last one found or added.
    void dropFirst() noexcept;
    void clear() noexcept;
    // Replaces everything, in the same order of recency.
    void copyFrom(const RecencyCache& other, Store* owner);
    // Binds all values that are bound.
    void bindTo(Store* owner);

    unsigned size() const { return m_size; }

private:
    using Index = uint16_t;
    static constexpr unsigned capacity = 8192;
    static constexpr unsigned bucketCount = 1024;
    static constexpr unsigned slotsPerBucket = 16;
    static constexpr unsigned slotCount = bucketCount * slotsPerBucket;
    static constexpr unsigned slotsAtFirst = 512;
    static constexpr Index ends = capacity; // heads the ring of links; no node

    struct Slot {
        uint32_t hash;
        Index node;
        uint16_t generation;
    };
    struct Link {
        uint32_t hash; // of the node's key
        Index previous, next;
    };

    unsigned homeOf(uint32_t hash) const {
        return (hash * slotsPerBucket + hash / bucketCount % slotsPerBucket) & m_lastSlot;
    }
    unsigned after(unsigned slot) const { return (slot + 1) & m_lastSlot; }
    static inline bool equal(const Item& a, const ConstByteSpan& b);

    Entry& entry(Index node) { return *std::launder(reinterpret_cast<Entry*>(m_entries) + node); }
    const Entry& entry(Index node) const { return *std::launder(reinterpret_cast<const Entry*>(m_entries) + node); }
    inline void linkFirst(Index node);
    inline void unlink(Index node);
    Index takeNode();
    void giveBack(Index node) noexcept;
    void enterSlot(Index node) noexcept;
    void leaveSlot(Index node) noexcept;
    void doubleSlots() noexcept;

    Slot m_slots[slotCount]; // those up to the last are in use, a power of two
    Link m_links[capacity + 1];
    unsigned m_lastSlot = slotsAtFirst - 1;
    unsigned m_size = 0;
    unsigned m_constructed = 0; // entries that were ever used
    Index m_free = ends;        // the pool, linked by `next`
    uint16_t m_generation = 1;
    alignas(64) std::byte m_entries[capacity * sizeof(Entry)]; // pages are touched as entries come
};

inline bool RecencyCache::equal(const Item& a, const ConstByteSpan& b) {
    const unsigned size = b.getSize();
    if (a.getPlainSize() != size) return false;
    const uint8_t* const x = a.getPlainBytePointer();
    const uint8_t* const y = b.getBytePointer();
    if (size < 8) {
        for (unsigned i = 0; i < size; ++i) {
            if (x[i] != y[i]) return false;
        }
        return true;
    }
    // Words, the last of which overlaps the one before.
    uint64_t difference = 0;
    for (unsigned at = 0; at + 8 < size; at += 8) {
        difference |= loadUnaligned<uint64_t>(x + at) ^ loadUnaligned<uint64_t>(y + at);
    }
    return (difference | (loadUnaligned<uint64_t>(x + size - 8) ^ loadUnaligned<uint64_t>(y + size - 8))) == 0;
}

inline void RecencyCache::unlink(Index node) {
    const Link link = m_links[node];
    m_links[link.previous].next = link.next;
    m_links[link.next].previous = link.previous;
}

inline void RecencyCache::linkFirst(Index node) {
    const Index first = m_links[ends].next;
    m_links[node].previous = ends;
    m_links[node].next = first;
    m_links[first].previous = node;
    m_links[ends].next = node;
}

inline RecencyCache::Entry* RecencyCache::find(const ConstByteSpan& key, uint32_t hash) {
    for (unsigned at = homeOf(hash);; at = after(at)) {
        const Slot slot = m_slots[at];
        if (slot.generation != m_generation) return nullptr;
        if (slot.hash != hash || !equal(entry(slot.node).key, key)) continue;
        if (m_links[ends].next != slot.node) {
            unlink(slot.node);
            linkFirst(slot.node);
        }
        return &entry(slot.node);
    }
}

} // namespace internal
} // namespace kiv
