#include "kiv/data/LineAssembler.h"

#include <utility>

namespace kiv::internal {

bool LineAssembler::next(std::string_view& bytes, std::string_view& line, Rest rest) {
    if (std::exchange(m_isGiven, false)) m_begun.clear();
    for (size_t end; (end = bytes.find('\n', std::exchange(m_scanned, 0))) != bytes.npos;) {
        line = bytes.substr(0, end);
        bytes.remove_prefix(end + 1);
        if (std::exchange(m_isDropping, false)) continue;
        if (!m_begun.empty()) {
            m_begun += line;
            line = m_begun;
            m_isGiven = true;
        }
        if (trim(line)) return true;
        m_begun.clear();
        m_isGiven = false;
    }
    if (rest == Rest::Left && m_begun.empty() && !m_isDropping) {
        m_scanned = bytes.size();
        return false;
    }
    if (!m_isDropping) m_begun += bytes;
    bytes = {};
    // One more for a CR whose LF is still to come.
    if (m_begun.size() > m_limit + 1) {
        m_isDropping = true;
        ++m_dropped;
        m_begun = std::string();
    }
    return false;
}

bool LineAssembler::finish(std::string_view& line) {
    if (std::exchange(m_isGiven, false)) m_begun.clear();
    if (m_begun.empty()) return false;
    line = m_begun;
    m_isGiven = true;
    return trim(line);
}

void LineAssembler::clear() {
    m_begun.clear();
    m_scanned = 0;
    m_isGiven = m_isDropping = false;
    m_dropped = 0;
}

// False when the line is dropped.
bool LineAssembler::trim(std::string_view& line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.size() <= m_limit) return true;
    ++m_dropped;
    return false;
}

unsigned LineAssembler::takeDropped() {
    return std::exchange(m_dropped, 0u);
}

} // namespace kiv::internal
