#include "kiv/store/MemoryStore.h"

#include "kiv/logging/MessageStream.h"

#include <utility>

namespace kiv {

using internal::SortKey;

MemoryStore::MemoryStore(bool transactional) : m_transactional(transactional) {}

MemoryStore::MemoryStore(const MemoryStore& other)
    : Store(other), m_data(other.m_data), m_journals(other.m_journals), m_transactional(other.m_transactional) {}

MemoryStore::MemoryStore(MemoryStore&& other) noexcept
    : Store(other), m_data(std::move(other.m_data)), m_journals(std::exchange(other.m_journals, {})),
      m_transactional(other.m_transactional) {
    other.startChange();
}

MemoryStore& MemoryStore::operator=(const MemoryStore& other) {
    return *this = MemoryStore(other);
}

MemoryStore& MemoryStore::operator=(MemoryStore&& other) noexcept {
    MemoryStore taken(std::move(other));
    m_data.swap(taken.m_data);
    m_journals.swap(taken.m_journals);
    m_transactional = taken.m_transactional;
    startChange();
    return *this;
}

MemoryStore::~MemoryStore() = default;

bool MemoryStore::good() const {
    return true;
}

// What was handed out ends here.
void MemoryStore::startChange() {
    m_cursor = PageTree::Cursor();
    m_viewsUsed = 0;
}

void MemoryStore::set(const Item& key, const Item& value) {
    KIV_PREFETCH(value.getPlainBytePointer()); // it is wanted when the place is found
    startChange();
    m_data.set(SortKey(key), {key.getConstByteSpan(), value.getConstByteSpan()}, undo());
}

const Item* MemoryStore::get(const Item& key) {
    const PageTree::Cursor cursor = isAtCursor(key) ? m_cursor : m_data.find(SortKey(key));
    return cursor ? view(cursor) : nullptr;
}

const Item* MemoryStore::view(const PageTree::Cursor& cursor) {
    if (m_viewsUsed == viewCount) return m_data.view(cursor, this);
    if (!m_views) m_views = std::make_unique<Item[]>(viewCount);
    Item& item = m_views[m_viewsUsed++];
    item.setPlainExternalBuffer(cursor.getValue());
    item.setStore(this);
    return &item;
}

void MemoryStore::remove(const Item& from, const Item& to) {
    startChange();
    const Item ownFrom = from, ownTo = to; // they may lie in what is removed
    m_data.remove(SortKey(ownFrom), SortKey(ownTo), undo());
}

bool MemoryStore::isAtCursor(const Item& key) const {
    if (!m_cursor) return false;
    const ConstByteSpan at = m_cursor.getKey();
    return at.getSize() == key.getPlainSize() &&
           internal::isSameShort(at.getBytePointer(), key.getPlainBytePointer(), at.getSize());
}

bool MemoryStore::handOut(const PageTree::Cursor& cursor, Item& out) {
    if (!cursor) return false;
    out.setPlain(cursor.getKey());
    out.setStore(this);
    m_cursor = cursor;
    return true;
}

bool MemoryStore::next(const Item& key, Item& out) {
    if (!isAtCursor(key)) return handOut(m_data.above(SortKey(key)), out);
    PageTree::Cursor cursor = m_cursor;
    cursor.next();
    return handOut(cursor, out);
}

bool MemoryStore::prev(const Item& key, Item& out) {
    if (!isAtCursor(key)) return handOut(m_data.below(SortKey(key)), out);
    PageTree::Cursor cursor = m_cursor;
    cursor.previous();
    return handOut(cursor, out);
}

bool MemoryStore::first(Item& out) {
    return handOut(m_data.first(), out);
}

void MemoryStore::begin() {
    if (!m_transactional) return;
    m_journals.emplace_back();
    m_journals.back().swap(m_spareJournal);
}

void MemoryStore::dropJournal() noexcept {
    m_spareJournal.swap(m_journals.back());
    m_spareJournal.clear();
    m_journals.pop_back();
}

void MemoryStore::commit() {
    if (!m_transactional) return;
    if (m_journals.empty()) {
        logging::MessageStream(3, 2) << "memorystore, commit without begin";
        return;
    }
    startChange();
    if (m_journals.size() > 1) m_journals[m_journals.size() - 2].absorb(m_journals.back());
    dropJournal();
}

void MemoryStore::rollback() {
    if (!m_transactional) {
        logging::MessageStream(3, 2) << "memorystore, rollback called in transactionless mode";
        return;
    }
    if (m_journals.empty()) {
        logging::MessageStream(3, 2) << "memorystore, rollback without begin";
        return;
    }
    startChange();
    m_data.revert(m_journals.back());
    dropJournal();
}

void MemoryStore::close() {}
void MemoryStore::flush() {}

int64_t MemoryStore::getSizeInBytes() const {
    return 0;
}

} // namespace kiv
