#pragma once

// The search within a page, inlined into the descent through a tree.

#include "kiv/store/Page.h"

namespace kiv::internal {

inline EntryView LargeEntry::view() const {
    const auto* bytes = reinterpret_cast<const uint8_t*>(this + 1);
    return {{bytes, keySize}, {bytes + keySize, valueSize}, isAbsence};
}

inline unsigned Page::sizeOfRecord(const Slot& slot) const {
    if (slot.keySize == large) return sizeof(LargeEntry*);
    const auto valueSize = loadUnaligned<uint16_t>(bytes() + slot.offset);
    return 2U + slot.keySize + (valueSize == absence ? 0 : valueSize);
}

inline LargeEntry* Page::getLarge(unsigned index) const {
    const Slot& slot = slots()[index];
    return slot.keySize == large ? loadUnaligned<LargeEntry*>(bytes() + slot.offset) : nullptr;
}

inline EntryView Page::at(unsigned index) const {
    const Slot& slot = slots()[index];
    if (slot.keySize == large) return getLarge(index)->view();
    const uint8_t* record = bytes() + slot.offset;
    const auto valueSize = loadUnaligned<uint16_t>(record);
    const bool isAbsence = valueSize == absence;
    return {{record + 2, slot.keySize}, {record + 2 + slot.keySize, isAbsence ? 0U : valueSize}, isAbsence};
}

// By its number, for the address may lie outside of everything.
inline void prefetchAt(const void* base, size_t offset) {
    KIV_PREFETCH(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(base) + offset));
}

inline void Page::prefetch() const {
    constexpr size_t searched = 384; // more at once would wait for each other
    for (size_t at = 0; at < searched; at += 64) KIV_PREFETCH(bytes() + at);
}

// The sign of `key` against all sort keys that begin with the prefix, 0 when it begins with it, too.
inline int Page::compareWithPrefix(const SortKey& key) const {
    const size_t prefixSize = m_prefixSize;
    if (key.size() < prefixSize) {
        const int order = std::memcmp(key.data(), prefix(), key.size());
        return order != 0 ? order : -1;
    }
    // Both may be read beyond their ends.
    uint64_t difference = 0;
    size_t at = 0;
    for (; at + 8 <= prefixSize; at += 8)
        difference |= loadUnaligned<uint64_t>(key.data() + at) ^ loadUnaligned<uint64_t>(prefix() + at);
    if (at != prefixSize) {
        const uint64_t word = loadUnaligned<uint64_t>(key.data() + at) ^ loadUnaligned<uint64_t>(prefix() + at);
        difference |= word << (8 * (8 - (prefixSize - at)));
    }
    return difference == 0 ? 0 : std::memcmp(key.data(), prefix(), prefixSize);
}

// The first entry whose head is not below. Without branches, for which way to go can't be foretold.
inline unsigned Page::findHead(uint64_t head) const {
    const Slot* base = slots();
    for (unsigned left = m_count; left != 0;) {
        const unsigned half = left / 2;
        base += base[half].getHead() < head ? left - half : 0;
        left = half;
    }
    return static_cast<unsigned>(base - slots());
}

inline Page::Place Page::find(const SortKey& key, bool isForView) const {
    if (const int order = compareWithPrefix(key); order != 0) return {order < 0 ? 0U : m_count, false};
    const uint64_t head = key.headAt(m_prefixSize);
    const unsigned index = findHead(head);
    if (index == m_count || slots()[index].getHead() != head) return {index, false};
    // What a hit will look at next, while the key is compared.
    prefetchAt(this, slots()[index].offset + 64U);
    if (isForView) prefetchAt(m_views, index * sizeof(Item));
    return findAmongEqualHeads(index, key);
}

inline unsigned Page::findChild(const SortKey& key) const {
    const Place place = find(key);
    return place.index + (place.exact ? 1 : 0);
}

inline Page* Page::getChild(unsigned index) const {
    return index == 0 ? m_firstChild : loadUnaligned<Page*>(at(index - 1).value.getBytePointer());
}

} // namespace kiv::internal
