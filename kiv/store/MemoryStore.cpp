#include "kiv/store/MemoryStore.h"

#include "kiv/logging/MessageStream.h"

#include <iterator>

namespace kiv {

MemoryStore::MemoryStore(bool transactional) : m_transactional(transactional) {}
MemoryStore::MemoryStore(const MemoryStore& other) = default;
MemoryStore::MemoryStore(MemoryStore&& other) = default;
MemoryStore& MemoryStore::operator=(const MemoryStore& other) = default;
MemoryStore& MemoryStore::operator=(MemoryStore&& other) = default;
MemoryStore::~MemoryStore() = default;

bool MemoryStore::good() const {
    return true;
}

void MemoryStore::remember(const Item& key, const std::optional<Item>& value) {
    if (!m_journals.empty()) m_journals.back().try_emplace(key, value);
}

void MemoryStore::set(const Item& key, const Item& value) {
    const auto at = m_data.lower_bound(key);
    if (at != m_data.end() && Item::compareTotal(at->first, key) == 0) {
        remember(at->first, at->second);
        at->second = value;
        at->second.setStore(this);
    } else {
        remember(key, std::nullopt);
        const auto added = m_data.emplace_hint(at, key, value);
        added->second.setStore(this);
    }
}

const Item* MemoryStore::get(const Item& key) {
    const auto at = m_data.find(key);
    if (at == m_data.end()) return nullptr;
    at->second.setStore(this);
    return &at->second;
}

void MemoryStore::remove(const Item& from, const Item& to) {
    if (Item::compareTotal(from, to) > 0) return;
    const auto begin = m_data.lower_bound(from), end = m_data.upper_bound(to);
    for (auto it = begin; it != end; ++it) remember(it->first, it->second);
    m_data.erase(begin, end);
}

bool MemoryStore::hand(Map<Item, Item>::const_iterator entry, Item& out) {
    if (entry == m_data.end()) return false;
    out = entry->first;
    out.setStore(this);
    return true;
}

bool MemoryStore::next(const Item& key, Item& out) {
    return hand(m_data.upper_bound(key), out);
}

bool MemoryStore::prev(const Item& key, Item& out) {
    const auto at = m_data.lower_bound(key);
    return at != m_data.begin() && hand(std::prev(at), out);
}

bool MemoryStore::first(Item& out) {
    return hand(m_data.begin(), out);
}

void MemoryStore::begin() {
    if (m_transactional) m_journals.emplace_back();
}

void MemoryStore::commit() {
    if (!m_transactional) return;
    if (m_journals.empty()) {
        logging::MessageStream(3, 2) << "memorystore, commit without begin";
        return;
    }
    Journal inner = std::move(m_journals.back());
    m_journals.pop_back();
    if (!m_journals.empty()) m_journals.back().merge(inner);
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
    const Journal inner = std::move(m_journals.back());
    m_journals.pop_back();
    for (const auto& [key, value] : inner) {
        m_data.erase(key);
        if (value) m_data.emplace(key, *value);
    }
}

void MemoryStore::close() {}
void MemoryStore::flush() {}

int64_t MemoryStore::getSizeInBytes() const {
    return 0;
}

} // namespace kiv
