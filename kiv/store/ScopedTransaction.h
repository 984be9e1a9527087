#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/store/Store.h"

namespace kiv {

// A transaction that is rolled back at the end of the scope unless it was committed. It does not keep the store, which
// must outlive it. Without a store (null, an item that is not bound) it does nothing.
class KIV_API ScopedTransaction {
public:
    explicit ScopedTransaction(Store* store);
    explicit ScopedTransaction(const SmartPointer<Store>& store);
    // The store that the item is bound to.
    explicit ScopedTransaction(const Item& item);
    explicit ScopedTransaction(Item* item);
    ScopedTransaction(const ScopedTransaction&) = delete;
    ScopedTransaction& operator=(const ScopedTransaction&) = delete;
    ~ScopedTransaction();

    // The first of these ends the transaction; later ones do nothing.
    void commit();
    void rollback();

private:
    Store* m_store;
};

} // namespace kiv
