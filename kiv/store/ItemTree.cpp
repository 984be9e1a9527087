// Items as keys: the tree that a store's order makes of them.

#include "kiv/core/Clock.h"
#include "kiv/core/Random.h"
#include "kiv/data/Item.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/ItemBound.h"
#include "kiv/store/ScopedTransaction.h"
#include "kiv/store/Store.h"

#include <utility>

namespace kiv {
namespace {

void logUnbound() {
    logging::MessageStream(3, 2) << "[STORE] item is not bound to a store";
}

// What the complete elements of a key amount to.
struct Shape {
    int depth = 0;
    unsigned size = 0;
    unsigned parentSize = 0; // without the last element
};

Shape shapeOf(const Item& key) {
    Shape shape;
    for (auto it = key.getIterator(); it.skip(); ++shape.depth) {
        shape.parentSize = shape.size;
        shape.size = static_cast<unsigned>(it.getOffset());
    }
    return shape;
}

Item firstBytes(const Item& key, unsigned size) {
    return Item(Item::ExternalBufferMode(), ConstByteSpan(key.getPlainBytePointer(), size));
}

// Requires: the key has a parent, which is not in the store.
void writeWithAncestors(Store& store, const Item& key, const Item& value) {
    const Item own(key); // may borrow bytes of the store
    Vector<unsigned> sizes;
    for (auto it = own.getIterator(); it.hasNextElement(); it.skip()) {
        sizes.push_back(static_cast<unsigned>(it.getOffset()));
    }
    ScopedTransaction transaction(&store);
    const Item empty;
    for (size_t level = sizes.size(); level-- > 0;) {
        const Item ancestor = firstBytes(own, sizes[level]);
        if (level + 1 != sizes.size() && store.get(ancestor)) break;
        store.set(ancestor, empty);
    }
    store.set(own, value);
    transaction.commit();
}

// Requires: the value is nothing that the store may move.
void write(Store& store, const Item& key, const Item& value) {
    const Shape shape = shapeOf(key);
    if (shape.depth == 0 || store.get(firstBytes(key, shape.parentSize))) {
        store.set(key, value);
    } else {
        writeWithAncestors(store, key, value);
    }
}

// Calls visit(path, value) for every entry below `from`, with its path from there, in order. Values are copies.
template <class Visit>
void visitBelow(Store& store, const Item& from, Visit visit) {
    const Shape shape = shapeOf(from);
    if (shape.size != from.getPlainSize()) return; // it ends in the middle of an element
    const ItemBound last(from, ValueType::End);
    Item key, copy;
    bool more = store.next(from, key);
    for (; more && Item::compareTotal(key, last) <= 0; more = store.next(key, key)) {
        const Item* value = store.get(key);
        if (!value) continue;
        copy = *value;
        // Not by the size of `from`: equal integers may be written in several sizes.
        auto it = key.getIterator();
        it.skip(shape.depth);
        const auto offset = static_cast<unsigned>(it.getOffset());
        visit(ConstByteSpan(key.getPlainBytePointer() + offset, key.getPlainSize() - offset), copy);
    }
}

Item childNamed(const Item& key, const char* name) {
    Item child(key);
    child.addString(name);
    return child;
}

} // namespace

const Item* Item::fetch() const {
    return m_store ? m_store->get(*this) : nullptr;
}

bool Item::exists() const {
    return fetch() != nullptr;
}

void Item::store(const Item& value) const {
    if (!m_store) {
        logUnbound();
    } else if (value.m_store == m_store || value.m_capacity == 0) {
        const Item copy(value); // may be what the store handed out, or lie within it
        write(*m_store, *this, copy);
    } else {
        write(*m_store, *this, value);
    }
}

void Item::copyValueFrom(const Item& key) const {
    const Item* value = key.fetch();
    if (!value) return;
    const Item copy(*value);
    if (m_store) {
        write(*m_store, *this, copy);
    } else {
        logUnbound();
    }
}

void Item::copyChildrenRecursive(const Item& from) const {
    if (!m_store) return logUnbound();
    if (!from.m_store) return;
    Item key(*this);
    const auto add = [&](const ConstByteSpan& path, const Item& value) {
        key.resizePlain(m_size);
        key.appendPlain(path.getBytePointer(), path.getSize());
        write(*m_store, key, value);
    };
    // What is written may lie in what is read, also when one of two stores stands in front of the other.
    const bool isBelow = compareTotal(*this, from) >= 0 && compareTotal(*this, ItemBound(from, ValueType::End)) < 0;
    if (from.m_store != m_store && !isBelow) return visitBelow(*from.m_store, from, add);
    Vector<Pair<Item, Item>> entries;
    visitBelow(*from.m_store, from, [&](const ConstByteSpan& path, const Item& value) {
        entries.emplace_back(Item(PlainMode(), path), value);
    });
    for (const auto& [path, value] : entries) add(path.getConstByteSpan(), value);
}

void Item::remove() const {
    if (!m_store) return logUnbound();
    m_store->remove(*this, ItemBound(*this, ValueType::End));
}

bool Item::child(Item& out) const {
    Item found;
    if (!exists() || !m_store->next(*this, found)) return false;
    if (compareTotal(found, ItemBound(*this, ValueType::Meta)) >= 0) return false;
    out = std::move(found);
    return true;
}

bool Item::next(Item& out) const {
    const Shape shape = shapeOf(*this);
    if (!m_store || shape.depth == 0) return false;
    ItemBound bound(*this, ValueType::End);
    Item found;
    if (!m_store->next(bound, found)) return false;
    bound.set(*this, shape.parentSize, ValueType::Meta);
    if (compareTotal(found, bound) >= 0) return false;
    out = std::move(found);
    return true;
}

bool Item::prev(Item& out) const {
    const Shape shape = shapeOf(*this);
    if (!m_store || shape.depth == 0) return false;
    Item found;
    if (!m_store->prev(*this, found)) return false;
    if (compareTotal(found, firstBytes(*this, shape.parentSize)) <= 0) return false;
    found.reduceDepthTo(shape.depth);
    out = std::move(found);
    return true;
}

bool Item::lastChild(Item& out) const {
    Item found;
    if (!exists() || !m_store->prev(ItemBound(*this, ValueType::Meta), found)) return false;
    if (compareTotal(found, *this) <= 0) return false;
    found.reduceDepthTo(getDepth() + 1);
    out = std::move(found);
    return true;
}

bool Item::next() {
    return next(*this);
}

bool Item::prev() {
    return prev(*this);
}

void Item::begin() const {
    if (!m_store) return logUnbound();
    m_store->begin();
}

void Item::commit() const {
    if (!m_store) return logUnbound();
    m_store->commit();
}

void Item::rollback() const {
    if (!m_store) return logUnbound();
    m_store->rollback();
}

void Item::createUniqueInteger(Item& out) const {
    if (!m_store) return logUnbound();
    Item candidate(*this);
    do {
        uint64_t bits = Random::current().randomUInt();
        bits |= uint64_t{Random::current().randomUInt()} << 32;
        bits = (bits & 0x00FFFFFFFFFFFFFF) | 0x8000000000000000;
        candidate.resizePlain(m_size);
        candidate.addInteger(static_cast<long long>(bits));
    } while (candidate.exists());
    out = std::move(candidate);
}

void Item::archive(const char* name, const Item& value) const {
    if (!m_store) return logUnbound();
    const Item source(value); // may borrow bytes of the store
    Item record(*this);
    do { // an earlier run's clock may have been ahead
        record.resizePlain(m_size);
        record.addInteger(Clock::current().getUniqueUtcMicroseconds());
    } while (record.exists());
    Item path;
    path.addItem(source);
    const Item archived = childNamed(record, "value");
    ScopedTransaction transaction(m_store);
    // First, for it reads all before it writes, and the archive itself may lie below the source.
    archived.copyChildrenRecursive(source);
    archived.copyValueFrom(source);
    childNamed(record, "type").store(name);
    childNamed(record, "path").store(path);
    transaction.commit();
}

// All of them lie in one range, for integers are the first of all elements.
void Item::archiveDeleteBefore(long long time) const {
    if (!m_store) return logUnbound();
    Item limit(*this), first, last;
    limit.addInteger(time);
    if (!child(first) || compareTotal(first, limit) >= 0) return;
    if (m_store->prev(limit, last)) m_store->remove(first, last);
}

} // namespace kiv
