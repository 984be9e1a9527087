// Any bytes as two items: a reader that succeeds steps over its element and any other stays, elements put together
// again give the same bytes, and the order is that of the elements one by one.
#include "kiv/data/Item.h"
#include "tests/data/ItemReference.h"

#include <cstdlib>

using kiv::Item;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// Every reader at one element.
void read(const Item::Iterator& here) {
    long long integer;
    double number;
    bool truth, success;
    kiv::String text;
    kiv::Buffer buffer;
    kiv::GUID guid;
    Item item;
    kiv::ConstByteSpan bytes;
    kiv::Map<kiv::SmartCStr, Item> table;
    auto succeeds = [&here](auto reader) {
        Item::Iterator it = here;
        const bool result = reader(it);
        require(it.getOffset() - here.getOffset() == (result ? static_cast<int>(here.getSize()) : 0));
        require(!result || here.hasNextElement());
        return result ? 1 : 0;
    };
    const int own =
        succeeds([&](auto& it) { return it.asInteger(integer); }) +
        succeeds([&](auto& it) { return it.asFloat(number); }) + succeeds([&](auto& it) { return it.asBool(truth); }) +
        succeeds([&](auto& it) { return it.asStringOrGUID(text, guid); }) +
        succeeds([&](auto& it) { return it.asBuffer(buffer); }) + succeeds([&](auto& it) { return it.asNIL(); }) +
        succeeds([&](auto& it) { return it.asSubItem(item); }) +
        succeeds([&](auto& it) { return it.asWeakBytes(kiv::ValueType::Pointer, bytes); }) +
        succeeds([&](auto& it) { return it.asWeakBytes(kiv::ValueType::Referee, bytes); });
    require(own == (here.hasNextElement() && here.getType() != kiv::ValueType::Meta &&
                    here.getType() < kiv::ValueType::Wildcard)
                ? 1
                : 0);
    succeeds([&](auto& it) { return it.asWeakSubItem(item); });
    succeeds([&](auto& it) { return it.asWeakItemView(item); });
    succeeds([&](auto& it) { return it.convertAsBool(success), success; });
    succeeds([&](auto& it) { return it.convertAsInteger(success), success; });
    succeeds([&](auto& it) { return it.convertAsFloat(success), success; });
    succeeds([&](auto& it) { return it.convertAsString(success), success; });
    Item::Iterator(here).asWeakTable(table);
}

void readAll(const Item& item) {
    Item again, element;
    Item::Iterator it = item.getIterator();
    do {
        read(it);
        element.clear();
        again.concatItem(it.extract(element) != kiv::ValueType::Invalid ? element : Item());
    } while (!element.empty());
    require(again.getPlainSize() == static_cast<unsigned>(it.getOffset()));
    require(std::memcmp(again.getPlainBytePointer(), item.getPlainBytePointer(), again.getPlainSize()) == 0);
    item.asString();
    item.asBrowsableString();
    item.getJSON(false);
    item.isCleanKey();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const auto at = static_cast<unsigned>(data[0] % size), all = static_cast<unsigned>(size - 1);
    const Item a(Item::PlainMode(), {data + 1, at}), b(Item::PlainMode(), {data + 1 + at, all - at});
    readAll(a);
    readAll(b);
    for (const bool total : {false, true}) {
        const auto compare =
            total ? &Item::compareTotal : static_cast<int (*)(const Item&, const Item&)>(Item::compare);
        const int order = support::sign(compare(a, b));
        require(compare(a, a) == 0 && order == -support::sign(compare(b, a)));
        require(order == support::ItemReference(total).compare(a, b));
    }
    return 0;
}
