#include "kiv/process/ChildLine.h"

#include <algorithm>

namespace kiv::internal {
namespace {

struct Tag {
    std::string_view text;
    int level;
};

// The child's failed assertions are no assertions of this program.
constexpr Tag tags[] = {{"[VERBOSE]", 0}, {"[WARN]", 2}, {"[WARNING]", 2}, {"[ERROR]", 3}, {"[ASSERT]", 3}};

bool isDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Seconds, as "%7.3f" prints them.
bool isTime(std::string_view text) {
    if (text.size() < 7 || text[text.size() - 4] != '.') return false;
    std::string_view whole = text.substr(0, text.size() - 4);
    // Blanks fill up what is shorter.
    while (text.size() == 7 && whole.starts_with(' ')) whole.remove_prefix(1);
    return isDigits(whole) && isDigits(text.substr(text.size() - 3));
}

std::string_view withoutTime(std::string_view line) {
    if (line.empty() || (line[0] != '[' && line[0] != '<')) return line;
    const size_t end = line.find(line[0] == '[' ? "] " : "> ");
    return end != line.npos && isTime(line.substr(1, end - 1)) ? line.substr(end + 2) : line;
}

} // namespace

ChildLine readChildLine(std::string_view line, int untagged) {
    line = withoutTime(line);
    for (const Tag& tag : tags) {
        if (!line.starts_with(tag.text)) continue;
        line.remove_prefix(tag.text.size());
        if (line.starts_with(' ')) line.remove_prefix(1);
        return {tag.level, line};
    }
    return {untagged, line};
}

} // namespace kiv::internal
