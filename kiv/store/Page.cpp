#include "kiv/store/PageSearch.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <new>

namespace kiv::internal {

namespace {

constexpr auto viewAlignment = std::align_val_t{64};

uint64_t headOf(SortBytes key, size_t offset) {
    uint64_t word = 0;
    if (offset < key.size) std::memcpy(&word, key.data + offset, std::min<size_t>(8, key.size - offset));
    return bigEndian(word);
}

int compareSortBytes(SortBytes a, SortBytes b) {
    const size_t common = std::min(a.size, b.size);
    if (common != 0) {
        if (const int order = std::memcmp(a.data, b.data, common); order != 0) return order;
    }
    return a.size < b.size ? -1 : a.size > b.size;
}

bool areEqual(const ConstByteSpan& a, const ConstByteSpan& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void copyBytes(uint8_t* to, const ConstByteSpan& from) {
    copyShort(to, from.getBytePointer(), from.getSize());
}

// A page's bytes, to write the page anew from.
struct PageCopy {
    explicit PageCopy(const Page& page) { std::memcpy(bytes, &page, Page::size); }
    const Page& get() const { return *std::launder(reinterpret_cast<const Page*>(bytes)); }
    alignas(Page) uint8_t bytes[Page::size];
};

} // namespace

size_t commonSize(SortBytes a, SortBytes b) {
    const uint8_t* const end = a.data + std::min(a.size, b.size);
    return static_cast<size_t>(std::mismatch(a.data, end, b.data).first - a.data);
}

void LargeEntry::setValue(const ConstByteSpan& value) {
    copyBytes(reinterpret_cast<uint8_t*>(this + 1) + keySize, value);
}

LargeEntry* LargeEntry::make(const EntryView& entry) {
    const unsigned keySize = entry.key.getSize(), valueSize = entry.value.getSize();
    void* memory = ::operator new (sizeof(LargeEntry) + keySize + size_t{valueSize});
    auto* large = new (memory) LargeEntry{keySize, valueSize, entry.isAbsence};
    auto* bytes = reinterpret_cast<uint8_t*>(large + 1);
    copyBytes(bytes, entry.key);
    copyBytes(bytes + keySize, entry.value);
    return large;
}

void LargeEntry::destroy(LargeEntry* entry) noexcept {
    ::operator delete(entry);
}

Page::Page(unsigned level) : m_firstChild(nullptr), m_level(static_cast<uint16_t>(level)) {
    if (isLeaf()) m_views = nullptr;
    clear();
}

Page* Page::make(PagePool& pool, unsigned level) {
    return new (pool.allocate()) Page(level);
}

void Page::destroy(PagePool& pool, Page* page) noexcept {
    page->erase(0, page->m_count);
    if (page->isLeaf()) page->freeViews(pool);
    pool.free(page);
}

void Page::clear() noexcept {
    m_count = 0;
    m_slotsBegin = sizeof(Page);
    m_recordsBegin = size;
    m_gaps = 0;
    m_prefixSize = 0;
}

void Page::eraseButBlock(unsigned index) noexcept {
    if (getLarge(index)) storeUnaligned<LargeEntry*>(bytes() + slots()[index].offset, nullptr);
    erase(index, index + 1);
}

bool Page::holds(const ConstByteSpan& span) const {
    const std::less<> isBefore; // total, whatever the pointers belong to
    const uint8_t* byte = span.getBytePointer();
    return !isBefore(byte, bytes()) && isBefore(byte, bytes() + size);
}

SortBytes Page::getSortBytes(unsigned index, std::optional<SortKey>& scratch) const {
    const ConstByteSpan key = at(index).key;
    if (!isLeaf()) return {key.getBytePointer(), key.getSize()};
    scratch.emplace(key);
    return {scratch->data(), scratch->size()};
}

int Page::compareAt(unsigned index, const SortKey& key) const {
    const ConstByteSpan own = at(index).key;
    if (!isLeaf()) return compareSortBytes({own.getBytePointer(), own.getSize()}, {key.data(), key.size()});
    if (areEqual(own, key.getEncoded())) return 0;
    return Item::compareTotal(Item(Item::ExternalBufferMode(), own),
                              Item(Item::ExternalBufferMode(), key.getEncoded()));
}

Page::Place Page::findAmongEqualHeads(unsigned begin, const SortKey& key) const {
    const uint64_t head = slots()[begin].getHead();
    // Most often there is but one.
    if (const int order = compareAt(begin, key); order >= 0) return {begin, order == 0};
    unsigned end = m_count;
    ++begin;
    while (begin < end) {
        const unsigned middle = begin + (end - begin) / 2;
        const int order = slots()[middle].getHead() > head ? 1 : compareAt(middle, key);
        if (order == 0) return {middle, true};
        if (order > 0) {
            end = middle;
        } else {
            begin = middle + 1;
        }
    }
    return {begin, false};
}

// Views for all entries at once, for they stay where they are until the page changes. Most often a block has room.
void Page::makeViews(PagePool& pool) {
    const unsigned count = m_count <= viewsOfBlock ? viewsOfBlock : m_count + m_count / 4U;
    void* const views = count == viewsOfBlock ? pool.allocate() : ::operator new(count * sizeof(Item), viewAlignment);
    freeViews(pool);
    m_views = static_cast<Item*>(views);
    m_viewCount = static_cast<uint16_t>(count);
}

void Page::freeViews(PagePool& pool) noexcept {
    if (!m_views) return;
    if (m_viewCount == viewsOfBlock) {
        pool.free(m_views);
    } else {
        ::operator delete(m_views, viewAlignment);
    }
    m_views = nullptr;
}

const Item* Page::view(PagePool& pool, unsigned index, Store* store) {
    if (m_count > m_viewCount) makeViews(pool);
    // Made anew, not assigned, as that would wait for what the old one holds. A view has nothing to release.
    Item* item = std::construct_at(m_views + index, Item::ExternalBufferMode(), at(index).value);
    item->setStore(store);
    return item;
}

void Page::linkBehind(Page* previous) noexcept {
    m_previous = previous;
    m_next = previous->m_next;
    previous->m_next = this;
    if (m_next) m_next->m_previous = this;
}

void Page::unlink() noexcept {
    if (m_previous) m_previous->m_next = m_next;
    if (m_next) m_next->m_previous = m_previous;
    m_previous = m_next = nullptr;
}

bool Page::fitsRecord(const EntryView& entry) {
    return size_t{entry.key.getSize()} + entry.value.getSize() <= maximumRecord;
}

uint16_t Page::writeRecord(const EntryView& entry, const LargeEntry* block) noexcept {
    if (block) {
        m_recordsBegin = static_cast<uint16_t>(m_recordsBegin - sizeof(block));
        storeUnaligned(bytes() + m_recordsBegin, block);
        return m_recordsBegin;
    }
    const unsigned keySize = entry.key.getSize(), valueSize = entry.value.getSize();
    m_recordsBegin = static_cast<uint16_t>(m_recordsBegin - (2 + keySize + valueSize));
    uint8_t* record = bytes() + m_recordsBegin;
    storeUnaligned(record, entry.isAbsence ? absence : static_cast<uint16_t>(valueSize));
    copyBytes(record + 2, entry.key);
    copyBytes(record + 2 + keySize, entry.value);
    return m_recordsBegin;
}

bool Page::insert(unsigned index, SortBytes key, const EntryView& entry, LargeEntry* block) {
    if (m_count == 0) {
        clear();
        setPrefix(key.data, std::min(key.size, maximumPrefix));
    } else if (index == 0 || index == m_count) {
        const size_t common = commonSize(key, {prefix(), m_prefixSize});
        if (common != m_prefixSize) shortenPrefix(common);
    }
    const size_t recordSize = block ? sizeof(block) : 2U + entry.key.getSize() + entry.value.getSize();
    const size_t needed = sizeof(Slot) + recordSize;
    if (needed > room()) {
        if (needed > room() + m_gaps) return false;
        compact();
    }
    Slot* at = slots() + index;
    std::memmove(at + 1, at, (m_count - index) * sizeof(Slot));
    at->offset = writeRecord(entry, block);
    at->keySize = block ? large : static_cast<uint16_t>(entry.key.getSize());
    at->setHead(headOf(key, m_prefixSize));
    ++m_count;
    m_ascending = index == m_lastInsertion + 1U ? static_cast<uint16_t>(m_ascending + 1) : uint16_t{0};
    m_lastInsertion = static_cast<uint16_t>(index);
    return true;
}

bool Page::replace(unsigned index, const EntryView& entry, LargeEntry* block) noexcept {
    Slot& slot = slots()[index];
    LargeEntry* const oldBlock = getLarge(index);
    const unsigned oldSize = sizeOfRecord(slot), valueSize = entry.value.getSize();
    uint8_t* const record = bytes() + slot.offset;
    if (oldBlock && block) {
        storeUnaligned(record, block);
        LargeEntry::destroy(oldBlock);
        return true;
    }
    if (!oldBlock && !block && 2U + slot.keySize + valueSize <= oldSize) {
        storeUnaligned(record, entry.isAbsence ? absence : static_cast<uint16_t>(valueSize));
        if (valueSize != 0) std::memmove(record + 2 + slot.keySize, entry.value.getBytePointer(), valueSize);
        m_gaps = static_cast<uint16_t>(m_gaps + oldSize - (2U + slot.keySize + valueSize));
        return true;
    }
    // The old record becomes a gap once the new one is written; the key may be needed from it until then.
    const ConstByteSpan key = at(index).key;
    const unsigned newSize = block ? sizeof(block) : 2U + key.getSize() + valueSize;
    if (newSize > room()) {
        if (newSize > size_t{room()} + m_gaps) return false;
        compact();
        return replace(index, entry, block);
    }
    slot.offset = writeRecord({key, entry.value, entry.isAbsence}, block);
    slot.keySize = block ? large : static_cast<uint16_t>(key.getSize());
    m_gaps = static_cast<uint16_t>(m_gaps + oldSize);
    if (oldBlock) LargeEntry::destroy(oldBlock);
    return true;
}

void Page::erase(unsigned from, unsigned to) noexcept {
    for (unsigned i = from; i < to; ++i) {
        m_gaps = static_cast<uint16_t>(m_gaps + sizeOfRecord(slots()[i]));
        if (LargeEntry* block = getLarge(i)) LargeEntry::destroy(block);
    }
    std::memmove(slots() + from, slots() + to, (m_count - to) * sizeof(Slot));
    m_count = static_cast<uint16_t>(m_count - (to - from));
    m_ascending = 0;
    if (m_count == 0) clear();
}

bool Page::isFilledUpTo(unsigned index) const {
    if (index != m_lastInsertion + 1U || m_ascending < 4) return false;
    size_t behind = 0;
    for (unsigned i = index; i < m_count; ++i) behind += sizeof(Slot) + sizeOfRecord(slots()[i]);
    return behind <= size / 2;
}

unsigned Page::getMiddle() const {
    const size_t half = getUsedSize() / 2;
    size_t before = 0;
    unsigned index = 0;
    while (index < m_count - 1U && before < half) before += sizeof(Slot) + sizeOfRecord(slots()[index++]);
    return index;
}

void Page::setPrefix(const uint8_t* from, size_t prefixSize) noexcept {
    if (prefixSize != 0 && from != prefix()) std::memmove(prefix(), from, prefixSize);
    m_prefixSize = static_cast<uint16_t>(prefixSize);
    m_slotsBegin = static_cast<uint16_t>(sizeof(Page) + (prefixSize + 7) / 8 * 8);
}

void Page::computeHeads(unsigned from, unsigned to, size_t prefixSize, uint64_t* heads) const {
    std::optional<SortKey> scratch;
    for (unsigned i = from; i < to; ++i) {
        *heads++ = prefixSize == m_prefixSize ? slots()[i].getHead() : headOf(getSortBytes(i, scratch), prefixSize);
    }
}

void Page::copyEntries(const Page& from, unsigned begin, unsigned end, const uint64_t* heads) noexcept {
    for (unsigned i = begin; i < end; ++i) {
        const Slot& slot = from.slots()[i];
        const unsigned recordSize = from.sizeOfRecord(slot);
        m_recordsBegin = static_cast<uint16_t>(m_recordsBegin - recordSize);
        std::memcpy(bytes() + m_recordsBegin, from.bytes() + slot.offset, recordSize);
        Slot& added = slots()[m_count++];
        added.keySize = slot.keySize;
        added.offset = m_recordsBegin;
        added.setHead(*heads++);
    }
}

void Page::compact() noexcept {
    const PageCopy copy(*this);
    const Page& from = copy.get();
    uint64_t heads[maximumCount];
    from.computeHeads(0, m_count, m_prefixSize, heads);
    clear();
    setPrefix(from.prefix(), from.m_prefixSize);
    copyEntries(from, 0, from.m_count, heads);
}

void Page::shortenPrefix(size_t prefixSize) {
    uint64_t heads[maximumCount];
    computeHeads(0, m_count, prefixSize, heads);
    const Slot* from = slots();
    setPrefix(prefix(), prefixSize);
    // The slots move towards the front, the records stay.
    Slot* to = slots();
    for (unsigned i = 0; i < m_count; ++i) {
        Slot slot = from[i]; // the places may overlap
        slot.setHead(heads[i]);
        to[i] = slot;
    }
}

void Page::moveTail(unsigned from, Page& to) {
    if (from == m_count) return;
    std::optional<SortKey> scratch[3];
    uint64_t heads[maximumCount];
    const SortBytes first = getSortBytes(0, scratch[0]), tail = getSortBytes(from, scratch[1]);
    const size_t tailPrefixSize = std::min(commonSize(tail, getSortBytes(m_count - 1U, scratch[2])), maximumPrefix);
    // A longer prefix needs room that there is not where most of the page stays.
    const size_t prefixSize = from > getMiddle()
                                  ? m_prefixSize
                                  : std::min(commonSize(first, getSortBytes(from - 1, scratch[2])), maximumPrefix);
    computeHeads(0, from, prefixSize, heads);
    computeHeads(from, m_count, tailPrefixSize, heads + from);

    const PageCopy copy(*this);
    to.setPrefix(tail.data, tailPrefixSize);
    to.copyEntries(copy.get(), from, m_count, heads + from);
    clear();
    setPrefix(first.data, prefixSize);
    copyEntries(copy.get(), 0, from, heads);
    m_ascending = 0;
}

void Page::appendAll(Page& right) {
    if (right.m_count == 0) return;
    std::optional<SortKey> scratch[2];
    uint64_t heads[maximumCount];
    const SortBytes first = m_count != 0 ? getSortBytes(0, scratch[0]) : right.getSortBytes(0, scratch[0]);
    const SortBytes last = right.getSortBytes(right.m_count - 1U, scratch[1]);
    const size_t prefixSize = std::min(commonSize(first, last), maximumPrefix);
    computeHeads(0, m_count, prefixSize, heads);
    right.computeHeads(0, right.m_count, prefixSize, heads + m_count);

    const PageCopy copy(*this);
    const Page& from = copy.get();
    clear();
    setPrefix(first.data, prefixSize);
    copyEntries(from, 0, from.m_count, heads);
    copyEntries(right, 0, right.m_count, heads + from.m_count);
    right.clear(); // the blocks are here now
}

} // namespace kiv::internal
