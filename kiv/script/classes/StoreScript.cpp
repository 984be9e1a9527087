// The script classes kiv.Store, kiv.MemoryStore and kiv.StoreRange.

#include "kiv/script/Class.h"
#include "kiv/script/Functor.h"
#include "kiv/script/ItemObject.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/VM.h"
#include "kiv/script/classes/Bindings.h"
#include "kiv/store/ItemBound.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/StoreFile.h"

#include <stdexcept>

namespace kivSq {
namespace {

using internal::getInstance;
using kiv::Item;
using kiv::ItemBound;
using kiv::MemoryStore;
using kiv::SmartPointer;
using kiv::Store;
using kiv::String;
using kiv::ValueType;

using MaybeKey = std::optional<ItemObject>;

ItemObject boundTo(Store& store, Item key) {
    key.setStore(&store);
    return ItemObject(std::move(key));
}

MaybeKey found(Store& store, bool isFound, const Item& key) {
    return isFound ? MaybeKey(boundTo(store, key)) : std::nullopt;
}

// ---- Transactions.

// Null for stores that don't tell.
MemoryStore* layered(Store& store) {
    auto* const memory = dynamic_cast<MemoryStore*>(&store);
    return memory && memory->isTransactional() ? memory : nullptr;
}

template <void (Store::*function)()>
void closeTransaction(Store& store) {
    const MemoryStore* const memory = layered(store);
    if (memory && memory->getNumberOfLayers() < 2) throw std::runtime_error("there is no open transaction");
    (store.*function)();
}

// Closes the transaction, and those that the function has left open in it. False when the function has closed it.
bool closeTransactions(Store& store, uint64_t layers, bool isGood) {
    MemoryStore* const memory = layered(store);
    while (memory && memory->getNumberOfLayers() > layers + 1) memory->rollback();
    if (memory && memory->getNumberOfLayers() <= layers) return false;
    if (isGood) {
        store.commit();
    } else {
        store.rollback();
    }
    return true;
}

// (store, function)
SQInteger transaction(SQVM* v) {
    const SmartPointer<Store> store = internal::objectOfCall<Store>(v, 1);
    if (!store) return SQ_ERROR;
    const SQObjectType type = sq_gettype(v, 2);
    if (type != OT_CLOSURE && type != OT_NATIVECLOSURE) return internal::throwMismatch(v, 1, "function", 2);
    const MemoryStore* const memory = layered(*store);
    if (!memory && dynamic_cast<const MemoryStore*>(store.get()))
        return sq_throwerror(v, "the store has no transactions");
    const uint64_t layers = memory ? memory->getNumberOfLayers() : 0;
    store->begin();
    sq_pushroottable(v);
    // What is not caught is logged where it gets out of the script.
    const bool isGood = SQ_SUCCEEDED(sq_call(v, 1, SQTrue, SQFalse));
    if (!closeTransactions(*store, layers, isGood) && isGood)
        return sq_throwerror(v, "the transaction was closed by its own function");
    if (isGood) return 1;
    sq_getlasterror(v);
    return sq_throwobject(v);
}

// ---- Entries.

void set(Store& store, const ItemKey& key, const Item& value) {
    store.set(internal::cleanKey(key), value);
}

MaybeKey getItem(Store& store, const ItemKey& key) {
    const Item* const value = store.get(key.item);
    return value ? MaybeKey(boundTo(store, *value)) : std::nullopt;
}

template <bool (Store::*function)(const Item& key, Item& out)>
MaybeKey neighbour(Store& store, const ItemKey& key) {
    Item out;
    const bool isFound = (store.*function)(key.item, out);
    return found(store, isFound, out);
}

MaybeKey first(Store& store) {
    Item out;
    const bool isFound = store.first(out);
    return found(store, isFound, out);
}

MaybeKey last(Store& store) {
    Item out;
    const bool isFound = store.prev(ItemBound(Item(), ValueType::End), out);
    return found(store, isFound, out);
}

Object children(Store& store, const ItemKey& parent) {
    Object keys = internal::requireVM().newArray(0);
    const ItemBound end(parent.item, ValueType::Meta);
    const int depth = parent.item.getDepth() + 1;
    Item key;
    bool isFound = store.next(parent.item, key);
    while (isFound && Item::compareTotal(key, end) < 0) {
        key.reduceDepthTo(depth);
        keys.asArray().append(Object::from(boundTo(store, key)));
        isFound = store.next(ItemBound(key, ValueType::End), key);
    }
    return keys;
}

// ---- Ranges: what foreach goes through.

struct StoreRange {
    SmartPointer<Store> store;
    Item prefix;
};

StoreRange range(Store& store, const ItemKey& prefix) {
    return {&store, prefix.item};
}

// (range, key before or null)
SQInteger nextKey(SQVM* v) {
    const auto* const self = internal::objectOfCall<StoreRange>(v, 1);
    if (!self) return SQ_ERROR;
    Store& store = *self->store;
    const auto* const before = getInstance<ItemObject>(v, 2);
    Item key;
    bool isFound = true;
    if (before) {
        isFound = store.next(before->item, key);
    } else if (store.get(self->prefix)) {
        key = self->prefix;
    } else {
        isFound = self->prefix.empty() ? store.first(key) : store.next(self->prefix, key);
    }
    isFound = isFound && Item::compareTotal(key, ItemBound(self->prefix, ValueType::End)) < 0;
    return Access<MaybeKey>::push(v, found(store, isFound, key)) ? 1 : SQ_ERROR;
}

// (range, key); null for a key that the loop has removed.
SQInteger valueOfKey(SQVM* v) {
    const auto* const self = getInstance<StoreRange>(v, 1);
    const auto* const key = getInstance<ItemObject>(v, 2);
    if (self && key) return Access<ItemResult>::push(v, ItemResult{self->store->get(key->item)}) ? 1 : SQ_ERROR;
    sq_pushnull(v);
    return sq_throwobject(v);
}

// ---- Stores in memory.

MemoryStore* makeStore() {
    return new MemoryStore(true);
}

MemoryStore* makeStoreOf(bool isTransactional) {
    return new MemoryStore(isTransactional);
}

bool load(MemoryStore& store, const String& path) {
    if (store.getNumberOfLayers() > 1) throw std::runtime_error("there is an open transaction");
    return kiv::StoreFile::load(&store, path);
}

bool save(Store& store, const String& path) {
    return kiv::StoreFile::save(&store, path);
}

void bindEntries(Class<Store, kiv::Object>& store) {
    store.method("set", &set)
        .method(
            "get", +[](Store& self, const ItemKey& key) { return ItemResult{self.get(key.item)}; })
        .method("getItem", &getItem)
        .method(
            "exists", +[](Store& self, const ItemKey& key) { return self.get(key.item) != nullptr; })
        .method(
            "item", +[](Store& self, const ItemKey& key) { return boundTo(self, key.item); })
        .method(
            "remove", +[](Store& self, const ItemKey& key) { boundTo(self, key.item).item.remove(); })
        .method(
            "removeRange",
            +[](Store& self, const ItemKey& from, const ItemKey& to) { self.remove(from.item, to.item); })
        .method("first", &first)
        .method("last", &last)
        .method("next", &neighbour<&Store::next>)
        .method("prev", &neighbour<&Store::prev>)
        .method("children", &children)
        .method("range", &range)
        .method(
            "copyFrom", +[](Store& self, Store& from) { self.copyFrom(&from); })
        .method("save", &save);
}

} // namespace

namespace internal {

void bindStore(const Object& table) {
    if (AdapterData::of<Store>().isInitialized()) return;
    bindObject(table);
    bindItem(table);
    Class<StoreRange>(table, "StoreRange").native<&nextKey>("_nexti").native<&valueOfKey>("_get");
    Class<Store, kiv::Object> store(table, "Store");
    bindEntries(store);
    store.native<&transaction>("transaction")
        .method("begin", &Store::begin)
        .method("commit", &closeTransaction<&Store::commit>)
        .method("rollback", &closeTransaction<&Store::rollback>)
        .method("good", &Store::good)
        .method("flush", &Store::flush)
        .method("close", &Store::close)
        .method("getSizeInBytes", &Store::getSizeInBytes);
}

void bindMemoryStore(const Object& table) {
    if (AdapterData::of<MemoryStore>().isInitialized()) return;
    bindStore(table);
    Class<MemoryStore, Store>(table, "MemoryStore", Constructor<Factory<&makeStore>, Factory<&makeStoreOf>>())
        .method("isTransactional", &MemoryStore::isTransactional)
        .method(
            "copy", +[](MemoryStore& self) { return SmartPointer<MemoryStore>(new MemoryStore(self)); })
        .method("getNumberOfLayers", &MemoryStore::getNumberOfLayers)
        .method("load", &load);
}

} // namespace internal
} // namespace kivSq
