#pragma once

#include "kiv/data/Item.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::app {

class Output;

// Draws the entries at and below a key as a tree, a line a key, from entries that come in the order of keys.
class TreeWriter {
public:
    // Shows `depth` levels below `top`.
    TreeWriter(const Item& top, unsigned depth, Output& output);

    // What does not lie at or below the top is left out.
    void add(const Item& key, const Item& value);
    // Writes the last line.
    void finish();
    // Of those that were not left out, also where they lay too deep to be shown.
    uint64_t getNumberOfEntries() const { return m_entries; }

private:
    void addLine(size_t level, const std::string& rest);
    std::string labelAt(size_t level) const;

    const Item m_top;
    const size_t m_topLevel;
    const unsigned m_depth;
    Output& m_output;
    std::vector<std::string> m_path; // the last key's elements, encoded
    std::string m_line;              // waits for the number of what is hidden below it
    uint64_t m_hidden = 0;
    uint64_t m_entries = 0;
};

} // namespace kiv::app
