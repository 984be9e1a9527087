#include "kiv/store/GUIDDomain.h"

#include <algorithm>

namespace kiv {

GUID GUIDDomain::createGUID(uint64_t n) const {
    uint64_t words[4] = {m_base.getWord(0), m_base.getWord(1), m_base.getWord(2), m_base.getWord(3)};
    const unsigned word = m_offset / 64, bit = m_offset % 64;
    if (word < 4) words[word] |= n << bit;
    if (word < 3 && bit != 0) words[word + 1] |= n >> (64 - bit);
    return {words[0], words[1], words[2], words[3]};
}

GUIDDomain GUIDDomain::selectSubDomain(unsigned bits, uint64_t n) const {
    const uint64_t offset = uint64_t{m_offset} + bits;
    return {createGUID(n), static_cast<unsigned>(std::min<uint64_t>(offset, UINT32_MAX))};
}

} // namespace kiv
