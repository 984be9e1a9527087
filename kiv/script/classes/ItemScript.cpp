// The script class kiv.Item.

#include "kiv/script/ItemObject.h"
#include "kiv/script/classes/ValueClass.h"

#include <stdexcept>

namespace kivSq {
namespace {

using internal::getInstance;
using kiv::Item;
using kiv::String;
using kiv::Trust;
using kiv::ValueType;

// ---- Elements.

void append(SQVM* v, SQInteger index, Item& to) {
    if (const char* reason = internal::addValue(v, index, to)) throw std::runtime_error(reason);
}

// A kiv.Item becomes a nested item.
SQInteger add(SQVM* v) {
    auto* self = getInstance<ItemObject>(v, 1);
    if (!self) return sq_throwerror(v, "native method call on null-pointer");
    for (SQInteger i = 2; i <= sq_gettop(v); ++i) {
        if (const auto* item = getInstance<ItemObject>(v, i)) {
            self->item.addItem(item->item);
        } else {
            append(v, i, self->item);
        }
    }
    sq_push(v, 1);
    return 1;
}

SQInteger constructItem(SQVM* v) {
    if (const SQInteger refusal = internal::checkConstruction(v, AdapterData::of<ItemObject>()); refusal != 0)
        return refusal;
    internal::install(v, new ItemObject);
    return add(v) == 1 ? 0 : SQ_ERROR;
}

// On the value of this index, or at the end.
Item::Iterator at(const Item& item, int64_t index) {
    Item::Iterator it = item.getIterator();
    for (; index > 0 && it.hasNextElement(); --index) it.skip(it.getValueSize() == it.getSize() ? 1 : 2);
    return it;
}

// One value as an item of its own.
Item valueAt(const Item& item, const Item::Iterator& it) {
    return Item(Item::PlainMode(), {item.getPlainBytePointer() + it.getOffset(), it.getValueSize()});
}

int64_t len(ItemObject& self) {
    int64_t count = 0;
    for (Item::Iterator it = self.item.getIterator(); it.hasNextElement(); ++count)
        it.skip(it.getValueSize() == it.getSize() ? 1 : 2);
    return count;
}

SQInteger pushValueAt(SQVM* v, Item::Iterator it, Trust trust) {
    const char* const reason = internal::pushValue(v, it, trust);
    return reason ? sq_throwerror(v, reason) : 1;
}

// (item, index)
SQInteger getElement(SQVM* v) {
    const auto* self = getInstance<ItemObject>(v, 1);
    SQInteger index = -1;
    if (self && sq_gettype(v, 2) == OT_INTEGER) sq_getinteger(v, 2, &index);
    if (index >= 0) {
        const Item::Iterator it = at(self->item, index);
        if (it.hasNextElement()) return pushValueAt(v, it, Trust::Data);
    }
    sq_pushnull(v);
    return sq_throwobject(v);
}

// (item, index before or null)
SQInteger nextIndex(SQVM* v) {
    const auto* self = getInstance<ItemObject>(v, 1);
    SQInteger index = -1;
    if (sq_gettype(v, 2) == OT_INTEGER) sq_getinteger(v, 2, &index);
    if (self && at(self->item, ++index).hasNextElement()) {
        sq_pushinteger(v, index);
    } else {
        sq_pushnull(v);
    }
    return 1;
}

template <Trust trust>
SQInteger toValue(SQVM* v) {
    const auto* self = internal::objectOfCall<ItemObject>(v, 0);
    if (!self) return SQ_ERROR;
    const char* const reason = internal::pushValueOf(v, self->item, trust);
    return reason ? sq_throwerror(v, reason) : 1;
}

SQInteger toArray(SQVM* v) {
    const auto* self = internal::objectOfCall<ItemObject>(v, 0);
    if (!self) return SQ_ERROR;
    sq_newarray(v, 0);
    for (Item::Iterator it = self->item.getIterator(); it.hasNextElement();) {
        if (const char* reason = internal::pushValue(v, it, Trust::Data)) return sq_throwerror(v, reason);
        sq_arrayappend(v, -2);
    }
    return 1;
}

const char* getType(ItemObject& self, int64_t index) {
    switch (at(self.item, index).getType()) {
    case ValueType::Int64:
    case ValueType::Int32:
    case ValueType::Int16:
    case ValueType::Int8:
        return "integer";
    case ValueType::Float:
        return "float";
    case ValueType::String:
        return "string";
    case ValueType::Prefix:
        return "prefix";
    case ValueType::Buffer:
        return "buffer";
    case ValueType::SubItem:
        return "item";
    case ValueType::GUID:
        return "guid";
    case ValueType::True:
    case ValueType::False:
        return "bool";
    case ValueType::NIL:
        return "nil";
    case ValueType::Invalid:
        return nullptr;
    default:
        return "marker";
    }
}

ItemObject getItem(ItemObject& self, int64_t index) {
    return ItemObject(valueAt(self.item, at(self.item, index)));
}

void bindElements(Class<ItemObject>& item) {
    item.native<&add>("add")
        .method(
            "addPrefix", +[](ItemObject& self, const char* text) { self.item.addPrefix(text); })
        .method(
            "addBuffer",
            +[](ItemObject& self, std::string_view bytes) {
                self.item.addBuffer(reinterpret_cast<const uint8_t*>(bytes.data()),
                                    static_cast<unsigned>(bytes.size()));
            })
        .method(
            "addItem", +[](ItemObject& self, const Item& value) { self.item.addItem(value); })
        .method(
            "concat", +[](ItemObject& self, const Item& value) { self.item.concatItem(value); })
        .method(
            "addWildcard", +[](ItemObject& self) { self.item.addWildcard(); })
        .method(
            "clear", +[](ItemObject& self) { self.item.clear(); })
        .method(
            "setValue", +[](ItemObject& self, const Item& value) { self.item.setPlain(value); })
        .native<&toValue<Trust::Data>>("toValue")
        .native<&toValue<Trust::Code>>("toValueWithCode")
        .native<&toArray>("toArray")
        .method("len", &len)
        .method("getType", &getType)
        .method("getItem", &getItem)
        .native<&getElement>("_get")
        .native<&nextIndex>("_nexti")
        .method(
            "find", +[](ItemObject& self, const char* key) {
                const Item::Iterator it = self.item.kvTryFind(key);
                if (!it.hasNextElement()) return std::optional<Item>();
                return std::optional<Item>(valueAt(self.item, it));
            });
}

// ---- Texts and order.

void bindTexts(Class<ItemObject>& item) {
    item.method(
            "getJSON", +[](ItemObject& self, bool isPretty) { return self.item.getJSON(isPretty); })
        .method(
            "setJSON", +[](ItemObject& self, const String& text) { return self.item.setJSON(text); })
        .method(
            "getBase16", +[](ItemObject& self) { return self.item.getBase16(); })
        .method(
            "setBase16", +[](ItemObject& self, const String& text) { return self.item.setBase16(text); })
        .method(
            "getBase64", +[](ItemObject& self) { return self.item.getBase64(); })
        .method(
            "setBase64", +[](ItemObject& self, const String& text) { return self.item.setBase64(text); })
        .method(
            "getBase64crc", +[](ItemObject& self) { return self.item.getBase64crc(); })
        .method(
            "setBase64crc", +[](ItemObject& self, const String& text) { return self.item.setBase64crc(text); })
        .method(
            "asString", +[](ItemObject& self) { return self.item.asString(); })
        .method(
            "_tostring", +[](ItemObject& self) { return self.item.asString(); })
        .method(
            "asBrowsableString", +[](ItemObject& self) { return self.item.asBrowsableString(); })
        .method(
            "getSize", +[](ItemObject& self) { return self.item.getPlainSize(); })
        .method(
            "compare", +[](ItemObject& self, const Item& other) { return self.item.compare(other); })
        .method(
            "_cmp", +[](ItemObject& self, const Item& other) { return self.item.compare(other); })
        .method(
            "equals", +[](ItemObject& self, const Item& other) { return self.item == other; });
}

// ---- Paths and trees.

const Item& bound(const ItemObject& self) {
    if (!self.store) throw std::runtime_error("the item is bound to no store");
    return self.item;
}

// Others could not be written to files.
const Item& writable(const ItemObject& self) {
    if (!bound(self).isCleanKey()) throw std::runtime_error("the item is not fit to be a key");
    return self.item;
}

using Neighbour = bool (Item::*)(Item& out) const;

// A new item with the same store, or null.
template <Neighbour function, bool isBound>
std::optional<ItemObject> neighbour(ItemObject& self) {
    Item out(self.item.getStore());
    if (!((isBound ? bound(self) : self.item).*function)(out)) return std::nullopt;
    return ItemObject(out);
}

template <void (Item::*function)() const>
void forward(ItemObject& self) {
    (bound(self).*function)();
}

void bindPaths(Class<ItemObject>& item) {
    item.method(
            "getDepth", +[](ItemObject& self) { return self.item.getDepth(); })
        .method(
            "reduceDepthTo", +[](ItemObject& self, int depth) { self.item.reduceDepthTo(depth); })
        .method("parent", &neighbour<&Item::parent, false>)
        .method("trail", &neighbour<&Item::trail, false>)
        .method(
            "getStore", +[](ItemObject& self) { return self.store; })
        .method(
            "setStore", +[](ItemObject& self, kiv::Store* store) {
                self.store = store;
                self.item.setStore(store);
            });
}

void bindTree(Class<ItemObject>& item) {
    item.method("child", &neighbour<&Item::child, true>)
        .method("next", &neighbour<&Item::next, true>)
        .method("prev", &neighbour<&Item::prev, true>)
        .method("lastChild", &neighbour<&Item::lastChild, true>)
        .method(
            "fetch", +[](ItemObject& self) { return ItemResult{bound(self).fetch()}; })
        .method(
            "fetchItem",
            +[](ItemObject& self) {
                const Item* value = bound(self).fetch();
                return value ? std::optional<ItemObject>(ItemObject(*value)) : std::nullopt;
            })
        .method(
            "exists", +[](ItemObject& self) { return bound(self).exists(); })
        .method(
            "store", +[](ItemObject& self, const Item& value) { writable(self).store(value); })
        .method("remove", &forward<&Item::remove>)
        .method("begin", &forward<&Item::begin>)
        .method("commit", &forward<&Item::commit>)
        .method("rollback", &forward<&Item::rollback>)
        .method(
            "copyValueFrom", +[](ItemObject& self, const ItemObject& key) { writable(self).copyValueFrom(bound(key)); })
        .method(
            "copyChildrenRecursive",
            +[](ItemObject& self, const ItemObject& from) { writable(self).copyChildrenRecursive(bound(from)); })
        .method(
            "createUniqueInteger",
            +[](ItemObject& self) {
                Item out(self.item.getStore());
                writable(self).createUniqueInteger(out);
                return ItemObject(out);
            })
        .method(
            "archive", +[](ItemObject& self, const char* name,
                           const ItemObject& key) { writable(self).archive(name, bound(key)); })
        .method(
            "archiveDeleteBefore", +[](ItemObject& self, int64_t time) { bound(self).archiveDeleteBefore(time); });
}

} // namespace

bool Access<Item>::get(SQVM* v, int64_t index, Item& out) {
    if (const auto* object = getInstance<ItemObject>(v, index)) {
        out = object->item;
        return true;
    }
    out.clear();
    return !internal::addValue(v, index, out);
}

bool Access<ItemObject>::get(SQVM* v, int64_t index, ItemObject& out) {
    if (!Access<Item>::get(v, index, out.item)) return false;
    out.store = out.item.getStore();
    return true;
}

bool Access<ItemObject>::push(SQVM* v, const ItemObject& value) {
    return internal::pushBound<&internal::bindItem>(v, value);
}

bool Access<ItemKey>::get(SQVM* v, int64_t index, ItemKey& out) {
    if (!Access<Item>::get(v, index, out.item)) return false;
    // The elements of an array without what nests them.
    if (sq_gettype(v, index) == OT_ARRAY) {
        Item elements;
        Item::Iterator it = out.item.getIterator();
        it.asWeakSubItem(elements);
        out.item.setPlain(elements);
    }
    return true;
}

namespace internal {

void bindItem(const Object& table) {
    if (AdapterData::of<ItemObject>().isInitialized()) return;
    bindGUID(table);
    Class<ItemObject> item(table, "Item", Constructor<void()>());
    item.native<&constructItem>("constructor")
        .method(
            "getClassName", +[](ItemObject&) { return Item::getStaticClassName(); });
    bindElements(item);
    bindTexts(item);
    bindPaths(item);
    bindTree(item);
}

} // namespace internal
} // namespace kivSq
