#include "StoreTree.h"

#include "Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace kiv::app {

namespace {

constexpr size_t longestValue = 60; // in code points

std::vector<std::string> elementsOf(const Item& key) {
    std::vector<std::string> elements;
    auto it = key.getIterator();
    for (Item element; it.asWeakItemView(element);)
        elements.emplace_back(reinterpret_cast<const char*>(element.getPlainBytePointer()), element.getPlainSize());
    return elements;
}

// The value's path text, cut where it gets long.
std::string shortText(const Item& value) {
    if (value.empty()) return {};
    const std::string text = withoutControls(value.asBrowsableString());
    const char *it = text.data(), *const end = it + text.size();
    for (size_t i = 0; i < longestValue && it < end; ++i) String::utf8_parse(it, end);
    return " = " + std::string(text.data(), it) + (it < end ? "..." : "");
}

} // namespace

TreeWriter::TreeWriter(const Item& top, unsigned depth, Output& output)
    : m_top(top), m_topLevel(static_cast<size_t>(top.getDepth())), m_depth(depth), m_output(output) {}

std::string TreeWriter::labelAt(size_t level) const {
    if (level == 0) return "{}";
    const std::string& bytes = m_path[level - 1];
    const Item element(Item::ExternalBufferMode(), ConstByteSpan(reinterpret_cast<const uint8_t*>(bytes.data()),
                                                                 static_cast<unsigned>(bytes.size())));
    return withoutControls(level == m_topLevel ? m_top.asBrowsableString() : element.asBrowsableString());
}

void TreeWriter::addLine(size_t level, const std::string& rest) {
    const size_t below = level - m_topLevel;
    if (below > m_depth) {
        ++m_hidden;
        return;
    }
    finish();
    m_line = std::string(2 * below, ' ') + labelAt(level) + rest;
}

void TreeWriter::finish() {
    if (m_line.empty()) return;
    m_output.write(m_line + (m_hidden ? fmt::format("  ({} below)\n", m_hidden) : "\n"));
    m_line.clear();
    m_hidden = 0;
}

void TreeWriter::add(const Item& key, const Item& value) {
    Item start(key);
    start.reduceDepthTo(static_cast<int>(m_topLevel));
    if (Item::compareTotal(start, m_top) != 0) return;
    std::vector<std::string> path = elementsOf(key);
    const auto parted = std::mismatch(path.begin(), path.end(), m_path.begin(), m_path.end()).first;
    size_t level = static_cast<size_t>(parted - path.begin()) + 1;
    m_path = std::move(path);
    // Levels between that have no entry of their own, the top among them.
    for (level = m_entries == 0 ? m_topLevel : level; level < m_path.size(); ++level) addLine(level, " (not stored)");
    addLine(m_path.size(), shortText(value));
    ++m_entries;
}

} // namespace kiv::app
