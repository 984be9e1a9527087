// Items as paths and as tables: what needs no store.

#include "kiv/data/Item.h"
#include "kiv/logging/MessageStream.h"

#include <cmath>
#include <string_view>

namespace kiv {

namespace {

constexpr unsigned cleanKeyBytes = 64 * 1024;
constexpr int cleanKeyElements = 64;
constexpr int cleanKeyDepth = 16;

bool isCleanAtDepth(const Item& item, int depth) {
    if (depth > cleanKeyDepth) return false;
    auto it = item.getIterator();
    for (int elements = 0; it.hasNextElement(); ++elements) {
        const ValueType type = it.getType();
        if (type > ValueType::True || elements == cleanKeyElements) return false;
        Item nested;
        double number;
        if (it.asWeakSubItem(nested)) {
            if (!isCleanAtDepth(nested, depth + 1)) return false;
        } else if (it.asFloat(number)) {
            if (std::isnan(number)) return false;
        } else {
            it.skip();
        }
    }
    return it.getOffset() == static_cast<int>(item.getPlainSize());
}

} // namespace

bool Item::isCleanKey() const {
    return m_size <= cleanKeyBytes && isCleanAtDepth(*this, 1);
}

int Item::getDepth() const {
    int depth = 0;
    for (Iterator it(*this); it.skip();) ++depth;
    return depth;
}

// -1 when there is no element.
int Item::offsetOfLastElement() const {
    int last = -1, here = 0;
    while (const unsigned size = decodeGetSizeOfNextElement(here)) {
        last = here;
        here += static_cast<int>(size);
    }
    return last;
}

bool Item::parent() {
    const int last = offsetOfLastElement();
    if (last < 0) return false;
    m_size = static_cast<uint32_t>(last);
    return true;
}

bool Item::parent(Item& out) const {
    const int last = offsetOfLastElement();
    if (last < 0) return false;
    out.setPlain(ConstByteSpan(m_data, static_cast<unsigned>(last)));
    out.m_store = m_store;
    return true;
}

void Item::reduceDepthTo(int depth) {
    Iterator it(*this);
    if (it.skip(depth)) m_size = static_cast<uint32_t>(it.getOffset());
}

bool Item::trail() {
    return trail(*this);
}

bool Item::trail(Item& out) const {
    const int last = offsetOfLastElement();
    if (last < 0) return false;
    Store* const store = m_store;
    Iterator(*this, last).extract(out);
    out.m_store = store;
    return true;
}

unsigned ItemIterator::getValueSize() const {
    ItemIterator it(*this);
    const ValueType type = it.getType();
    const char* prefix = type == ValueType::Prefix ? it.asWeakCStr() : nullptr;
    if (!prefix) return getSize();
    const ValueType partner = it.getType();
    const bool isTable = partner == ValueType::SubItem && std::string_view(prefix) == "table";
    const bool isClosure = partner == ValueType::Buffer && std::string_view(prefix) == "squirrel";
    return getSize() + (isTable || isClosure ? it.getSize() : 0);
}

Item::Iterator Item::kvTryFind(const char* key) const& {
    const std::string_view wanted(key ? key : "");
    Iterator it(*this);
    while (const char* name = it.asWeakCStr()) {
        if (*name == 0) break;
        if (name == wanted) return it;
        const unsigned value = it.getValueSize();
        if (value == 0) break;
        it.advance(value);
    }
    return Iterator(*this, static_cast<int>(m_size));
}

Item::Iterator Item::kvFind(const char* key) const& {
    const Iterator found = kvTryFind(key);
    if (found.getOffset() == static_cast<int>(m_size)) {
        logging::MessageStream(2, 2) << "key in item not found: " << (key ? key : "");
    }
    return found;
}

void Item::kvFromMap(const Map<String, Item>& map) {
    Item pairs;
    for (const auto& [key, value] : map) {
        pairs.addString(key);
        if (value.empty()) {
            pairs.addNIL();
        } else {
            pairs.concatItem(value);
        }
    }
    pairs.m_store = m_store;
    *this = std::move(pairs);
}

Map<SmartCStr, Item> Item::kvToWeakMap() const& {
    Map<SmartCStr, Item> map;
    Iterator it(*this);
    while (const char* key = it.asWeakCStr()) {
        const unsigned size = it.getValueSize();
        if (*key == 0 || size == 0) break;
        map.try_emplace(key, ExternalBufferMode(), ConstByteSpan(m_data + it.getOffset(), size));
        it.advance(size);
    }
    return map;
}

bool ItemIterator::asWeakTable(Map<SmartCStr, Item>& out) {
    ItemIterator it(*this);
    if (it.getType() == ValueType::Prefix && std::string_view(it.asWeakCStr()) != "table") return false;
    ConstByteSpan bytes;
    if (!it.asWeakBytes(ValueType::SubItem, bytes)) return false;
    const Item pairs(Item::ExternalBufferMode(), bytes);
    out = pairs.kvToWeakMap();
    *this = it;
    return true;
}

} // namespace kiv
