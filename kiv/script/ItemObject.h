#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Access.h"
#include "kiv/store/Store.h"

#include <stdexcept>

namespace kivSq {

// What an object of the script class kiv.Item is: an item, with the store it is bound to, which it keeps. Return one
// where scripts need the elements as they are, as keys do. Requires: the store is owned by smart pointers.
struct ItemObject {
    ItemObject() = default;
    explicit ItemObject(kiv::Item value) : item(std::move(value)), store(item.getStore()) {}

    kiv::Item item;
    kiv::SmartPointer<kiv::Store> store;
};

// As an argument: a kiv.Item, or any other value as the item of it.
template <>
struct Access<ItemObject> {
    KIV_API static bool get(SQVM* v, int64_t index, ItemObject& out);
    KIV_API static bool push(SQVM* v, const ItemObject& value);
    static const char* name() { return Access<kiv::Item>::name(); }
};

// A key as an argument: a kiv.Item, an array, whose values are its elements, or another value as its only element.
struct ItemKey {
    kiv::Item item;
};

template <>
struct Access<ItemKey> {
    KIV_API static bool get(SQVM* v, int64_t index, ItemKey& out);
    static const char* name() { return "key"; }
};

namespace internal {

// For what is written: others could not be kept in files. Throws.
inline const kiv::Item& cleanKey(const ItemKey& key) {
    if (!key.item.isCleanKey()) throw std::runtime_error("the value is not fit to be a key");
    return key.item;
}

} // namespace internal

// The value that an item stands for, as a result; null without one.
struct ItemResult {
    const kiv::Item* item = nullptr;
};

template <>
struct Access<ItemResult> {
    static bool push(SQVM* v, const ItemResult& result) {
        if (result.item) return Access<kiv::Item>::push(v, *result.item);
        sq_pushnull(v);
        return true;
    }
};

} // namespace kivSq
