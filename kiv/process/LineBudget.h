#pragma once

#include "kiv/core/Clock.h"

#include <cstdint>
#include <utility>

namespace kiv::internal {

// How many of a child's lines get into the log: so many in a second, and of the others their number.
class LineBudget {
public:
    static constexpr unsigned linesPerSecond = 500;

    // Whether the next line would be left out.
    bool isSpent() const { return m_lines == linesPerSecond && !hasPassed(); }
    // False when the line is left out.
    bool take() {
        if (m_lines == 0 || hasPassed()) {
            m_begin = now();
            m_lines = 0;
        }
        const bool isWithin = m_lines < linesPerSecond;
        ++(isWithin ? m_lines : m_leftOut);
        return isWithin;
    }
    // How many were, once their second has passed or when no more will come; 0 when that was told already.
    unsigned takeLeftOut(bool isOver) {
        return m_leftOut != 0 && (isOver || hasPassed()) ? std::exchange(m_leftOut, 0u) : 0;
    }

private:
    static int64_t now() { return Clock::current().getMilliseconds(); }
    bool hasPassed() const { return now() - m_begin >= 1000; }

    int64_t m_begin = 0;  // of the second
    unsigned m_lines = 0; // in it
    unsigned m_leftOut = 0;
};

} // namespace kiv::internal
