#pragma once

#include <cstdint>
#include <set>

// Remote calls of one end: each is to end exactly once.
class Ledger {
public:
    uint64_t begin() {
        m_open.insert(++m_made);
        return m_made;
    }
    void end(uint64_t call, bool isGood) {
        if (m_open.erase(call) == 0)
            ++m_surplus;
        else
            ++(isGood ? m_answered : m_failed);
    }

    uint64_t getMade() const { return m_made; }
    uint64_t getAnswered() const { return m_answered; }
    uint64_t getFailed() const { return m_failed; }
    // What ended twice, and what has not ended.
    uint64_t getSurplus() const { return m_surplus; }
    uint64_t getOpen() const { return m_open.size(); }

private:
    std::set<uint64_t> m_open;
    uint64_t m_made = 0;
    uint64_t m_answered = 0;
    uint64_t m_failed = 0;
    uint64_t m_surplus = 0;
};
