#pragma once

#include "kiv/data/Item.h"

#include <string>
#include <string_view>

namespace kiv::app {

enum class ItemForm { JSON, Pretty, Base16, Base64, Base64crc, Debug, Path };

// The item in this form, without control characters.
std::string textOf(const Item& item, ItemForm form);

// JSON has no words for bytes that are no element; the other forms show them or keep them. Empty when the form loses
// nothing, else a message behind the name of the input.
std::string lossOf(const Item& item, ItemForm form);

// Where and why source[begin, end) did not decode, with the line around the place. `offset` is from `begin` on.
std::string refusalOf(const std::string& name, std::string_view source, size_t begin, size_t end,
                      const Item::TextError& error);

} // namespace kiv::app
