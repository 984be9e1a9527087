#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kiv {

class Alarm;

namespace internal {

// Alarms in the order of their due times, and among equal ones in that of a rank which makePlace() gives. The order is
// cut into blocks, found by binary search; within a block it is made only when somebody asks, which is at the front of
// the list. Inserting appends to a block; removing clears a bit and touches no other alarm. Takes no references.
// Threads: one. makePlace() and move() throw std::bad_alloc and change nothing then.
class AlarmList {
    struct Position {
        int64_t due;
        int64_t rank; // unique
        bool operator<(const Position& other) const {
            return (due < other.due) | ((due == other.due) & (rank < other.rank));
        }
    };

public:
    AlarmList() = default;
    AlarmList(const AlarmList&) = delete;
    AlarmList& operator=(const AlarmList&) = delete;

    // Where an alarm goes, behind or before all that are due at the same time. It must be inserted next.
    struct Place {
        Position position;
        uint32_t block;
    };
    Place makePlace(int64_t due, bool isLast);
    void insert(const Place& place, Alarm* alarm);
    void remove(Alarm* alarm);
    void move(Alarm* alarm, int64_t due, bool isLast);

    size_t size() const { return m_size; }
    int64_t dueTimeOf(const Alarm* alarm) const;
    // False when there is none behind `alarm`.
    bool findFollowing(const Alarm* alarm, int64_t& due);
    // Requires of these three: not empty.
    Alarm* first() { return m_first ? m_first : findFirst(); }
    int64_t firstDueTime() { return first(), m_firstDue; }
    int64_t lastDueTime() {
        if (!m_last) findLast();
        return m_lastDue;
    }

    std::vector<Alarm*> inOrder() const;

private:
    static constexpr unsigned blockSize = 512;
    static constexpr unsigned maximalTail = 16;

    struct Entry : Position {
        Alarm* alarm;
    };
    // Which entries of a block are in the list.
    struct Mask {
        static constexpr unsigned npos = blockSize;
        uint64_t words[blockSize / 64] = {};

        bool test(unsigned index) const { return (words[index / 64] >> index % 64) & 1; }
        void set(unsigned index) { words[index / 64] |= uint64_t{1} << index % 64; }
        void clear(unsigned index) { words[index / 64] &= ~(uint64_t{1} << index % 64); }
        void setFirst(unsigned count);
        // The next one that is set at `index` or behind, resp. before `index`; npos when there is none.
        unsigned next(unsigned index) const;
        unsigned previous(unsigned index) const;
    };
    struct Block {
        std::unique_ptr<Entry[]> entries;
        Mask live;
        uint32_t size = 0;   // of the list's alarms
        uint32_t count = 0;  // entries in use, live or not
        uint32_t sorted = 0; // how many of them from the front are in order; what is behind is the tail
    };

    // The place in the directory of the last block that begins at or before that.
    size_t findBlock(int64_t due) const;
    size_t findBlock(const Position& position) const;
    // Makes sure that insertBlock() finds a block, and memory for all that a change of the directory takes.
    void reserveBlock();
    Block& insertBlock(size_t at, const Position& begin);
    void eraseBlock(size_t at);
    void updateDirectory();
    // Makes room in the full block at `at`; the place of the block that a new alarm goes to.
    size_t makeRoom(size_t at, const Position& position);
    void split(size_t at);

    void compact(uint32_t id);
    // Leaves a short tail at most, lest single insertions sort again and again.
    void sort(uint32_t id);
    static void sortEntries(Entry* begin, Entry* end);
    void setPlaces(uint32_t id, unsigned from);
    Alarm* findFirst();
    Alarm* findLast();
    unsigned findFirst(uint32_t id);
    unsigned findLast(uint32_t id);

    std::vector<Block> m_blocks; // by identifier
    std::vector<uint32_t> m_free;
    // The directory, in order. A block begins at (due, rank); the first one before everything, so its
    // begin is never asked.
    std::vector<int64_t> m_beginDue;
    std::vector<int64_t> m_beginRank;
    std::vector<uint32_t> m_order;
    double m_blocksPerTime = 0; // on average, but for the first block

    size_t m_size = 0;
    int64_t m_firstRank = 0; // the lowest and the highest given so far
    int64_t m_lastRank = 0;
    // Null when not known; then the due time is not either.
    Alarm* m_first = nullptr;
    Alarm* m_last = nullptr;
    int64_t m_firstDue = 0;
    int64_t m_lastDue = 0;
};

} // namespace internal
} // namespace kiv
