#include "kiv/data/Item.h"

#include <cstdlib>

namespace {

using kiv::Item;
using kiv::String;

// What is accepted is the item's own text (base16 in either case); what is refused leaves the item as it was and names
// a place in the text.
void check(const String& text, bool (Item::*set)(const String&, Item::TextError*), String (Item::*get)() const) {
    Item item("unchanged");
    Item::TextError error;
    if ((item.*set)(text, &error)) {
        const String again = (item.*get)();
        if (again != (get == &Item::getBase16 ? text.utf8_uppercase() : text)) std::abort();
    } else if (item != Item("unchanged") || error.offset > text.size() || !*error.reason) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const String text(reinterpret_cast<const char*>(data), size);
    check(text, &Item::setBase16, &Item::getBase16);
    check(text, &Item::setBase64, &Item::getBase64);
    check(text, &Item::setBase64crc, &Item::getBase64crc);
    // Hardly any input has a checksum that holds: here every one does.
    const Item item(Item::PlainMode(), {data, static_cast<unsigned>(size)});
    check(item.getBase64crc(), &Item::setBase64crc, &Item::getBase64crc);
    return 0;
}
