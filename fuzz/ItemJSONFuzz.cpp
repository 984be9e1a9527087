#include "kiv/data/Item.h"

#include <cstdlib>

// JSON that is accepted makes an item whose JSON makes the same item, indented or not; what is refused changes nothing.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const kiv::String text(reinterpret_cast<const char*>(data), size);
    kiv::Item item("unchanged"), again;
    kiv::Item::TextError error;
    if (!item.setJSON(text, &error)) {
        if (item != kiv::Item("unchanged") || error.offset > size || !*error.reason) std::abort();
        return 0;
    }
    for (const bool pretty : {false, true}) {
        if (!again.setJSON(item.getJSON(pretty)) || again.getBase16() != item.getBase16()) std::abort();
    }
    return 0;
}
