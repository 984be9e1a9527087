#include "StoreInput.h"

#include "ItemForms.h"
#include "Text.h"

#include "kiv/platform/Console.h"

#include <fmt/format.h>

namespace kiv::app {

void complainOfStore(const std::string& text) {
    internal::writeStandardError("kiv store: " + text + '\n');
}

bool readKey(const std::string& name, const std::string& text, Item& key) {
    key.clear();
    const size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == text.npos || text[begin] != '[') {
        key.addString(text.c_str());
    } else {
        Item array;
        Item::TextError error;
        if (!array.setJSON(String(text), &error)) {
            std::string refusal = refusalOf(name, text, 0, text.size(), error);
            refusal.pop_back();
            complainOfStore(refusal);
            return false;
        }
        Item::Iterator(array).asSubItem(key);
    }
    if (key.isCleanKey()) return true;
    complainOfStore(name + ": no key of a store file: it has NaN or a mark, or is too large");
    return false;
}

std::string entryText(const Item& key, const Item& value) {
    return withoutControls(key.asString()) + " = " + withoutControls(value.asString());
}

StoreInput::StoreInput(const std::string& path)
    : m_reader(path), m_name(withoutControls(path)), m_progress("reading " + m_name) {}

bool StoreInput::read(Item& key, Item& value) {
    if (!m_reader.read(key, value)) return false;
    constexpr uint64_t rarely = 4096;
    if (m_reader.getNumberOfEntries() % rarely == 0) m_progress.show(m_reader.getOffset(), m_reader.getLength());
    return true;
}

bool StoreInput::finish() {
    if (!m_reader.isOpen()) {
        complainOfStore(m_name + ": can't be read");
    } else if (isDamaged()) {
        complainOfStore(
            fmt::format("{}: damaged from offset {} on: {}", m_name, m_reader.getOffset(), m_reader.getReason()));
    }
    return m_reader.isWhole();
}

} // namespace kiv::app
