#include "kiv/tasks/AlarmList.h"

#include "kiv/tasks/Alarm.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <utility>

namespace kiv::internal {

void AlarmList::Mask::setFirst(unsigned count) {
    for (uint64_t& word : words) {
        word = count >= 64 ? ~uint64_t{0} : (uint64_t{1} << count) - 1;
        count -= std::min(count, 64u);
    }
}

unsigned AlarmList::Mask::next(unsigned index) const {
    for (unsigned word = index / 64; word < blockSize / 64; ++word, index = 0) {
        const uint64_t rest = words[word] & (~uint64_t{0} << index % 64);
        if (rest) return word * 64 + static_cast<unsigned>(std::countr_zero(rest));
    }
    return npos;
}

unsigned AlarmList::Mask::previous(unsigned index) const {
    Mask before;
    before.setFirst(index);
    for (unsigned word = blockSize / 64; word-- > 0;) {
        const uint64_t rest = words[word] & before.words[word];
        if (rest) return word * 64 + 63 - static_cast<unsigned>(std::countl_zero(rest));
    }
    return npos;
}

AlarmList::Place AlarmList::makePlace(int64_t due, bool isLast) {
    reserveBlock();
    const Position position{due, isLast ? ++m_lastRank : --m_firstRank};
    // Ranks are the outermost yet, so that due times alone tell the block.
    size_t at = 0;
    if (m_order.empty())
        insertBlock(0, position);
    else
        at = findBlock(isLast ? due : due - 1);
    if (m_blocks[m_order[at]].count == blockSize) at = makeRoom(at, position);
    return {position, m_order[at]};
}

void AlarmList::insert(const Place& place, Alarm* alarm) {
    Block& block = m_blocks[place.block];
    const unsigned index = block.count++;
    block.entries[index] = {place.position, alarm};
    block.live.set(index);
    ++block.size;
    alarm->m_place = place.block * blockSize + index;

    // Of an equal time, the outermost rank makes it the outermost alarm.
    const auto [due, rank] = place.position;
    const bool isAlone = m_size++ == 0;
    if (isAlone || (m_first && (due < m_firstDue || (due == m_firstDue && rank == m_firstRank)))) {
        m_first = alarm;
        m_firstDue = due;
    }
    if (isAlone || (m_last && (due > m_lastDue || (due == m_lastDue && rank == m_lastRank)))) {
        m_last = alarm;
        m_lastDue = due;
    }
}

void AlarmList::remove(Alarm* alarm) {
    const uint32_t id = alarm->m_place / blockSize;
    const unsigned index = alarm->m_place % blockSize;
    Block& block = m_blocks[id];
    assert(block.live.test(index));
    block.live.clear(index);
    --m_size;
    if (alarm == m_first) m_first = nullptr;
    if (alarm == m_last) m_last = nullptr;
    if (--block.size == 0) return eraseBlock(findBlock(block.entries[index]));
    if (index + 1 == block.count) {
        block.count = block.live.previous(index) + 1;
        block.sorted = std::min(block.sorted, block.count);
    }
}

void AlarmList::move(Alarm* alarm, int64_t due, bool isLast) {
    reserveBlock(); // nothing fails once the alarm is out
    remove(alarm);
    insert(makePlace(due, isLast), alarm);
}

int64_t AlarmList::dueTimeOf(const Alarm* alarm) const {
    return m_blocks[alarm->m_place / blockSize].entries[alarm->m_place % blockSize].due;
}

Alarm* AlarmList::findFirst() {
    const uint32_t id = m_order.front();
    const Entry& entry = m_blocks[id].entries[findFirst(id)];
    m_firstDue = entry.due;
    return m_first = entry.alarm;
}

Alarm* AlarmList::findLast() {
    const uint32_t id = m_order.back();
    const Entry& entry = m_blocks[id].entries[findLast(id)];
    m_lastDue = entry.due;
    return m_last = entry.alarm;
}

bool AlarmList::findFollowing(const Alarm* alarm, int64_t& due) {
    const uint32_t id = alarm->m_place / blockSize;
    sort(id);
    const Block& block = m_blocks[id];
    const Position& own = block.entries[alarm->m_place % blockSize];
    const Entry* sortedEnd = block.entries.get() + block.sorted;
    const Entry* behind = std::upper_bound(static_cast<const Entry*>(block.entries.get()), sortedEnd, own,
                                           [](const Position& a, const Position& b) { return a < b; });
    unsigned best = block.live.next(static_cast<unsigned>(behind - block.entries.get()));
    if (best >= block.sorted) best = Mask::npos;
    for (unsigned i = block.live.next(block.sorted); i != Mask::npos; i = block.live.next(i + 1)) {
        const Entry& entry = block.entries[i];
        if (own < entry && (best == Mask::npos || entry < block.entries[best])) best = i;
    }
    if (best != Mask::npos) {
        due = block.entries[best].due;
        return true;
    }
    const size_t at = findBlock(own) + 1;
    if (at == m_order.size()) return false;
    due = m_blocks[m_order[at]].entries[findFirst(m_order[at])].due;
    return true;
}

std::vector<Alarm*> AlarmList::inOrder() const {
    std::vector<Alarm*> alarms;
    std::vector<Entry> entries;
    for (uint32_t id : m_order) {
        const Block& block = m_blocks[id];
        entries.clear();
        for (unsigned i = block.live.next(0); i != Mask::npos; i = block.live.next(i + 1))
            entries.push_back(block.entries[i]);
        std::sort(entries.begin(), entries.end());
        for (const Entry& entry : entries) alarms.push_back(entry.alarm);
    }
    return alarms;
}

// Where times are spread evenly, the block is near the place that interpolation gives; elsewhere it is searched among
// all. Without a branch that depends on the time, which nobody could predict.
size_t AlarmList::findBlock(int64_t due) const {
    const int64_t *all = m_beginDue.data(), *begin = all;
    size_t count = m_beginDue.size();
    constexpr size_t reach = 8;
    if (count > 4 * reach) {
        const double guess = static_cast<double>(due - all[1]) * m_blocksPerTime;
        const double limit = static_cast<double>(count - 1 - reach);
        const auto at = static_cast<size_t>(std::clamp(guess, static_cast<double>(reach), limit));
        if (all[at - reach] <= due && due < all[at + reach]) {
            begin = all + (at - reach);
            count = 2 * reach;
        }
    }
    while (count > 1) {
        const size_t half = count / 2;
        begin += begin[half] <= due ? half : 0;
        count -= half;
    }
    return static_cast<size_t>(begin - all);
}

void AlarmList::updateDirectory() {
    const size_t count = m_beginDue.size();
    if (count > 2)
        m_blocksPerTime = static_cast<double>(count - 2) / static_cast<double>(m_beginDue.back() - m_beginDue[1] + 1);
}

size_t AlarmList::findBlock(const Position& position) const {
    size_t begin = 0;
    for (size_t count = m_order.size(); count > 1;) {
        const size_t half = count / 2, middle = begin + half;
        if (!(position < Position{m_beginDue[middle], m_beginRank[middle]})) begin = middle;
        count -= half;
    }
    return begin;
}

void AlarmList::reserveBlock() {
    if (!m_free.empty() && m_blocks[m_free.back()].entries) return;
    auto entries = std::make_unique_for_overwrite<Entry[]>(blockSize);
    if (m_free.empty()) {
        if (m_blocks.size() == m_blocks.capacity()) m_blocks.reserve(2 * m_blocks.size() + 8);
        const size_t capacity = m_blocks.capacity();
        m_free.reserve(capacity);
        m_beginDue.reserve(capacity);
        m_beginRank.reserve(capacity);
        m_order.reserve(capacity);
        m_free.push_back(static_cast<uint32_t>(m_blocks.size()));
        m_blocks.emplace_back();
    }
    m_blocks[m_free.back()].entries = std::move(entries);
}

AlarmList::Block& AlarmList::insertBlock(size_t at, const Position& begin) {
    const auto offset = static_cast<ptrdiff_t>(at);
    m_beginDue.insert(m_beginDue.begin() + offset, begin.due);
    m_beginRank.insert(m_beginRank.begin() + offset, begin.rank);
    m_order.insert(m_order.begin() + offset, m_free.back());
    m_free.pop_back();
    updateDirectory();
    Block& block = m_blocks[m_order[at]];
    block.size = block.count = block.sorted = 0;
    return block;
}

void AlarmList::eraseBlock(size_t at) {
    const auto offset = static_cast<ptrdiff_t>(at);
    const uint32_t id = m_order[at];
    m_beginDue.erase(m_beginDue.begin() + offset);
    m_beginRank.erase(m_beginRank.begin() + offset);
    m_order.erase(m_order.begin() + offset);
    updateDirectory();
    // A few are kept, so that memory is not taken and given back all the time.
    if (m_free.size() > m_order.size() + 16) m_blocks[id].entries.reset();
    m_free.push_back(id);
}

size_t AlarmList::makeRoom(size_t at, const Position& position) {
    const uint32_t id = m_order[at];
    const bool isBehindAll = at + 1 == m_order.size() && m_last && position.due >= m_lastDue;
    if (isBehindAll && (position.due > m_lastDue || position.rank == m_lastRank)) {
        insertBlock(at + 1, position); // what always grows at its end fills its blocks
        return at + 1;
    }
    if (m_blocks[id].size <= blockSize / 4 * 3) {
        compact(id);
        return at;
    }
    split(at);
    return position < Position{m_beginDue[at + 1], m_beginRank[at + 1]} ? at : at + 1;
}

// About in the middle: the exact one would take longer to find than all else together.
void AlarmList::split(size_t at) {
    const uint32_t id = m_order[at];
    compact(id);
    Block& lower = m_blocks[id];
    const unsigned count = lower.count, sorted = lower.sorted;
    Position samples[15];
    for (unsigned i = 0; i < 15; ++i) samples[i] = lower.entries[(i + 1) * count / 16];
    std::nth_element(samples, samples + 7, samples + 15);
    const Position pivot = samples[7];

    Block& upper = insertBlock(at + 1, pivot);
    Entry *from = lower.entries.get(), *low = from, *high = upper.entries.get();
    unsigned unchanged = 0;
    while (from[unchanged] < pivot) ++unchanged;
    for (unsigned i = 0; i < count; ++i) {
        if (i == sorted) {
            lower.sorted = static_cast<unsigned>(low - lower.entries.get());
            upper.sorted = static_cast<unsigned>(high - upper.entries.get());
        }
        const Entry entry = from[i];
        const bool isLow = entry < pivot;
        *low = *high = entry;
        low += isLow;
        high += !isLow;
    }
    lower.size = lower.count = static_cast<unsigned>(low - lower.entries.get());
    upper.size = upper.count = static_cast<unsigned>(high - upper.entries.get());
    if (sorted == count) lower.sorted = lower.count, upper.sorted = upper.count;
    lower.live.setFirst(lower.count);
    upper.live.setFirst(upper.count);
    setPlaces(id, unchanged);
    setPlaces(m_order[at + 1], 0);
}

void AlarmList::compact(uint32_t id) {
    Block& block = m_blocks[id];
    if (block.size == block.count) return;
    unsigned count = 0, sorted = 0;
    for (unsigned i = block.live.next(0); i != Mask::npos; i = block.live.next(i + 1)) {
        sorted += i < block.sorted;
        if (i != count) {
            block.entries[count] = block.entries[i];
            block.entries[count].alarm->m_place = id * blockSize + count;
        }
        ++count;
    }
    block.count = count;
    block.sorted = sorted;
    block.live.setFirst(count);
}

// Most blocks are spread evenly: then distributing the entries by time nearly sorts them.
void AlarmList::sortEntries(Entry* begin, Entry* end) {
    if (end - begin < 64) return std::sort(begin, end);
    const auto [low, high] = std::minmax_element(begin, end, [](auto& a, auto& b) { return a.due < b.due; });
    const int64_t lowest = low->due;
    const auto span = static_cast<uint64_t>(high->due - lowest);
    if (span > UINT32_MAX) return std::sort(begin, end);
    const uint64_t scale = (uint64_t{blockSize} << 32) / (span + 1);
    const auto slotOf = [&](const Entry& entry) { return static_cast<uint64_t>(entry.due - lowest) * scale >> 32; };

    uint16_t counts[blockSize] = {}, *next = counts;
    for (const Entry* entry = begin; entry != end; ++entry) ++counts[slotOf(*entry)];
    if (*std::max_element(counts, counts + blockSize) > 16) return std::sort(begin, end);
    for (unsigned sum = 0; next != counts + blockSize; ++next) sum += std::exchange(*next, static_cast<uint16_t>(sum));
    Entry spread[blockSize];
    for (const Entry* entry = begin; entry != end; ++entry) spread[counts[slotOf(*entry)]++] = *entry;
    for (Entry *from = spread, *to = begin; to != end; ++from, ++to) {
        Entry* at = to;
        for (; at != begin && *from < at[-1]; --at) *at = at[-1];
        *at = *from;
    }
}

void AlarmList::sort(uint32_t id) {
    if (m_blocks[id].count - m_blocks[id].sorted <= maximalTail) return;
    compact(id);
    Block& block = m_blocks[id];
    Entry *begin = block.entries.get(), *middle = begin + block.sorted, *end = begin + block.count;
    sortEntries(middle, end);
    if (block.sorted > 0) {
        Entry merged[blockSize];
        std::copy(merged, std::merge(begin, middle, middle, end, merged), begin);
    }
    block.sorted = block.count;
    setPlaces(id, 0);
}

void AlarmList::setPlaces(uint32_t id, unsigned from) {
    const Block& block = m_blocks[id];
    for (unsigned i = from; i < block.count; ++i) block.entries[i].alarm->m_place = id * blockSize + i;
}

unsigned AlarmList::findFirst(uint32_t id) {
    sort(id);
    const Block& block = m_blocks[id];
    unsigned best = block.live.next(0);
    const unsigned soon = best + 4;
    if (soon < block.sorted && block.live.test(soon)) KIV_PREFETCH(&block.entries[soon].alarm->m_callback);
    for (unsigned i = block.live.next(block.sorted); i != Mask::npos; i = block.live.next(i + 1)) {
        if (block.entries[i] < block.entries[best]) best = i;
    }
    return best;
}

unsigned AlarmList::findLast(uint32_t id) {
    sort(id);
    const Block& block = m_blocks[id];
    unsigned best = block.live.previous(block.count);
    if (block.sorted > 0 && best >= block.sorted) {
        const unsigned last = block.live.previous(block.sorted);
        if (last != Mask::npos) best = last;
    }
    for (unsigned i = block.live.next(block.sorted); i != Mask::npos; i = block.live.next(i + 1)) {
        if (block.entries[best] < block.entries[i]) best = i;
    }
    return best;
}

} // namespace kiv::internal
