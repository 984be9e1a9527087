#include "kiv/store/RecencyCache.h"

#include <algorithm>
#include <cassert>
#include <memory>

namespace kiv::internal {

RecencyCache::RecencyCache() {
    static_assert(slotCount >= 2 * capacity, "a search ends at an empty slot");
    std::fill_n(m_slots, slotsAtFirst, Slot{});
    m_links[ends] = {0, ends, ends};
}

RecencyCache::~RecencyCache() {
    for (unsigned i = 0; i < m_constructed; ++i) std::destroy_at(&entry(static_cast<Index>(i)));
}

RecencyCache::Index RecencyCache::takeNode() {
    if (m_free != ends) {
        const Index node = m_free;
        m_free = m_links[node].next;
        return node;
    }
    if (m_constructed < capacity) {
        new (m_entries + m_constructed * sizeof(Entry)) Entry;
        return static_cast<Index>(m_constructed++);
    }
    const Index last = m_links[ends].previous;
    leaveSlot(last);
    unlink(last);
    --m_size;
    return last;
}

void RecencyCache::giveBack(Index node) noexcept {
    m_links[node].next = m_free;
    m_free = node;
}

void RecencyCache::enterSlot(Index node) noexcept {
    unsigned at = homeOf(m_links[node].hash);
    while (m_slots[at].generation == m_generation) at = after(at);
    m_slots[at] = {m_links[node].hash, node, m_generation};
}

// Closes the gap, so that every entry stays reachable from its home without an empty slot between.
void RecencyCache::leaveSlot(Index node) noexcept {
    unsigned gap = homeOf(m_links[node].hash);
    while (m_slots[gap].node != node || m_slots[gap].generation != m_generation) gap = after(gap);
    for (unsigned at = after(gap); m_slots[at].generation == m_generation; at = after(at)) {
        const unsigned distance = (at - homeOf(m_slots[at].hash)) & m_lastSlot;
        if (distance < ((at - gap) & m_lastSlot)) continue;
        m_slots[gap] = m_slots[at];
        gap = at;
    }
    m_slots[gap].generation = 0;
}

void RecencyCache::doubleSlots() noexcept {
    m_lastSlot = 2 * m_lastSlot + 1;
    std::fill_n(m_slots, m_lastSlot + 1, Slot{});
    for (Index node = m_links[ends].next; node != ends; node = m_links[node].next) enterSlot(node);
}

RecencyCache::Entry& RecencyCache::add(const ConstByteSpan& key, uint32_t hash, const Item* value, Store* owner) {
    const Index node = takeNode();
    Entry& made = entry(node);
    try {
        made.key.setPlain(key); // first, for it may lie in the old value
        if (value) {
            made.value.setPlain(*value);
        } else {
            made.value.clear();
        }
    } catch (...) {
        giveBack(node);
        throw;
    }
    made.value.setStore(value ? owner : nullptr);
    m_links[node].hash = hash;
    if (4 * m_size > m_lastSlot && m_lastSlot < slotCount - 1) doubleSlots();
    enterSlot(node);
    linkFirst(node);
    ++m_size;
    return made;
}

void RecencyCache::dropFirst() noexcept {
    const Index node = m_links[ends].next;
    assert(node != ends);
    leaveSlot(node);
    unlink(node);
    giveBack(node);
    --m_size;
}

void RecencyCache::clear() noexcept {
    if (m_size == 0) return;
    const Index first = m_links[ends].next, last = m_links[ends].previous;
    m_links[last].next = m_free;
    m_free = first;
    m_links[ends] = {0, ends, ends};
    m_size = 0;
    if (++m_generation == 0) { // once in 65535 times: no slot may look new again
        std::fill_n(m_slots, m_lastSlot + 1, Slot{});
        m_generation = 1;
    }
}

void RecencyCache::copyFrom(const RecencyCache& other, Store* owner) {
    clear();
    for (Index node = other.m_links[ends].previous; node != ends; node = other.m_links[node].previous) {
        const Entry& from = other.entry(node);
        add(from.key.getConstByteSpan(), other.m_links[node].hash, from.value.getStore() ? &from.value : nullptr,
            owner);
    }
}

void RecencyCache::bindTo(Store* owner) {
    for (Index node = m_links[ends].next; node != ends; node = m_links[node].next) {
        Item& value = entry(node).value;
        if (value.getStore()) value.setStore(owner);
    }
}

} // namespace kiv::internal
