#include "kiv/data/LineAssembler.h"

#include <utility>

namespace kiv::internal {

void LineAssembler::append(std::string_view bytes) {
    m_bytes.erase(0, m_begin);
    m_scanned -= m_begin;
    m_begin = 0;
    if (m_isDropping) {
        const size_t end = bytes.find('\n');
        if (end == bytes.npos) return;
        bytes.remove_prefix(end + 1);
        m_isDropping = false;
    }
    m_bytes += bytes;
}

bool LineAssembler::next(std::string_view& line) {
    for (;;) {
        const size_t end = m_bytes.find('\n', m_scanned);
        if (end == m_bytes.npos) break;
        if (take(end, end + 1, line)) return true;
    }
    m_scanned = m_bytes.size();
    // One more for a CR whose LF is still to come.
    if (m_bytes.size() - m_begin > m_limit + 1) {
        m_isDropping = true;
        ++m_dropped;
        m_begin = m_bytes.size();
    }
    return false;
}

bool LineAssembler::finish(std::string_view& line) {
    return m_begin < m_bytes.size() && take(m_bytes.size(), m_bytes.size(), line);
}

// False when the line is dropped.
bool LineAssembler::take(size_t end, size_t behind, std::string_view& line) {
    std::string_view taken(m_bytes.data() + m_begin, end - m_begin);
    m_begin = m_scanned = behind;
    if (taken.ends_with('\r')) taken.remove_suffix(1);
    if (taken.size() > m_limit) {
        ++m_dropped;
        return false;
    }
    line = taken;
    return true;
}

unsigned LineAssembler::takeDropped() {
    return std::exchange(m_dropped, 0u);
}

} // namespace kiv::internal
