#pragma once

#include "kiv/data/Item.h"
#include "kiv/store/Store.h"

namespace kiv::internal {

// Calls visit(key, value) for every entry in order for as long as that returns true; false when it did not. The value
// is valid until the store changes, which the visit must not do.
template <class Visit>
bool visitEntries(Store& store, Visit visit) {
    Item key;
    for (bool more = store.first(key); more; more = store.next(key, key)) {
        const Item* value = store.get(key);
        if (value && !visit(key, *value)) return false;
    }
    return true;
}

} // namespace kiv::internal
