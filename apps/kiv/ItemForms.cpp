#include "ItemForms.h"

#include "Text.h"

#include <fmt/format.h>

namespace kiv::app {

std::string textOf(const Item& item, ItemForm form) {
    switch (form) {
    case ItemForm::Base16:
        return item.getBase16().to_std_string();
    case ItemForm::Base64:
        return item.getBase64().to_std_string();
    case ItemForm::Base64crc:
        return item.getBase64crc().to_std_string();
    case ItemForm::Debug:
        return withoutControls(item.asString());
    case ItemForm::Path:
        return withoutControls(item.asBrowsableString());
    case ItemForm::Pretty:
        return withoutControlsInJSON(item.getJSON(true), true);
    default:
        return withoutControlsInJSON(item.getJSON(false), false);
    }
}

std::string lossOf(const Item& item, ItemForm form) {
    Item::Iterator it = item.getIterator();
    it.skipToEnd();
    const auto whole = static_cast<unsigned>(it.getOffset());
    if ((form != ItemForm::JSON && form != ItemForm::Pretty) || whole == item.getPlainSize()) return {};
    return fmt::format("of {} encoded bytes those from offset {} on are no element, and JSON would lose them; "
                       "\"--to debug\" shows what there is",
                       item.getPlainSize(), whole);
}

std::string refusalOf(const std::string& name, std::string_view source, size_t begin, size_t end,
                      const Item::TextError& error) {
    const size_t offset = begin + error.offset;
    const Place place = placeOf(source, offset);
    return fmt::format("{}, offset {}, line {}, column {}: {}{}\n{}", name, offset, place.line, place.column,
                       error.reason, offset < end ? "" : "; the text ends here", excerptOf(source, offset));
}

} // namespace kiv::app
