#include "kiv/store/ScopedTransaction.h"

#include <utility>

namespace kiv {

ScopedTransaction::ScopedTransaction(Store* store) : m_store(store) {
    if (m_store) m_store->begin();
}
ScopedTransaction::ScopedTransaction(const SmartPointer<Store>& store) : ScopedTransaction(store.get()) {}
ScopedTransaction::ScopedTransaction(const Item& item) : ScopedTransaction(item.getStore()) {}
ScopedTransaction::ScopedTransaction(Item* item) : ScopedTransaction(item ? item->getStore() : nullptr) {}

ScopedTransaction::~ScopedTransaction() {
    try {
        rollback();
    } catch (...) { // out of memory: a destructor has no better answer
    }
}

void ScopedTransaction::commit() {
    if (!m_store) return;
    m_store->commit(); // what it throws leaves the transaction open: the destructor rolls it back
    m_store = nullptr;
}

void ScopedTransaction::rollback() {
    if (Store* store = std::exchange(m_store, nullptr)) store->rollback();
}

} // namespace kiv
