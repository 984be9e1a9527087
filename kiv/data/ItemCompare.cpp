// The order of items. Equal leading bytes are equal leading elements, so comparison looks for the first different byte
// and decodes from the element that holds it; nested items are followed with an explicit stack.

#include "kiv/data/Item.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

namespace kiv {

namespace {

using internal::loadUnaligned;

constexpr auto typeInt64 = static_cast<uint8_t>(ValueType::Int64);
constexpr auto typeWildcard = static_cast<uint8_t>(ValueType::Wildcard);

// What is left of one side on the present level of nesting.
struct Side {
    const uint8_t* at;
    const uint8_t* end;

    unsigned left() const { return static_cast<unsigned>(end - at); }
};

struct Level {
    Side a, b;
};

// Where comparison goes on after nested items, innermost last. Ordinary nesting needs no allocation.
class LevelStack {
public:
    bool empty() const { return m_count == 0; }
    void push(const Level& level) {
        if (m_count < inlineLevels) {
            m_levels[m_count] = level;
        } else {
            m_more.push_back(level);
        }
        ++m_count;
    }
    Level pop() {
        if (--m_count < inlineLevels) return m_levels[m_count];
        const Level level = m_more.back();
        m_more.pop_back();
        return level;
    }

private:
    static constexpr size_t inlineLevels = 8;
    Level m_levels[inlineLevels];
    size_t m_count = 0;
    std::vector<Level> m_more;
};

template <class T>
int order(T a, T b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

size_t commonPrefix(const uint8_t* a, const uint8_t* b, size_t size) {
    size_t at = 0;
    for (; size - at >= 32; at += 32) {
        const uint64_t difference = (loadUnaligned<uint64_t>(a + at) ^ loadUnaligned<uint64_t>(b + at)) |
                                    (loadUnaligned<uint64_t>(a + at + 8) ^ loadUnaligned<uint64_t>(b + at + 8)) |
                                    (loadUnaligned<uint64_t>(a + at + 16) ^ loadUnaligned<uint64_t>(b + at + 16)) |
                                    (loadUnaligned<uint64_t>(a + at + 24) ^ loadUnaligned<uint64_t>(b + at + 24));
        if (difference != 0) break;
    }
    for (; size - at >= 8; at += 8) {
        const uint64_t difference = loadUnaligned<uint64_t>(a + at) ^ loadUnaligned<uint64_t>(b + at);
        if (difference != 0) return at + (static_cast<size_t>(std::countr_zero(difference)) >> 3);
    }
    while (at < size && a[at] == b[at]) ++at;
    return at;
}

int compareBytes(const uint8_t* a, size_t aSize, const uint8_t* b, size_t bSize) {
    const size_t common = std::min(aSize, bSize);
    if (common != 0) {
        if (const int result = std::memcmp(a, b, common); result != 0) return result;
    }
    const int64_t difference = static_cast<int64_t>(aSize) - static_cast<int64_t>(bSize);
    return static_cast<int>(std::clamp<int64_t>(difference, INT_MIN, INT_MAX));
}

long long decodeInteger(const uint8_t* element) {
    switch (static_cast<ValueType>(element[0])) {
    case ValueType::Int8:
        return static_cast<int8_t>(element[1]);
    case ValueType::Int16:
        return loadUnaligned<int16_t>(element + 1);
    case ValueType::Int32:
        return loadUnaligned<int32_t>(element + 1);
    default:
        return loadUnaligned<int64_t>(element + 1);
    }
}

int compareTexts(const uint8_t* a, size_t aSize, const uint8_t* b, size_t bSize) {
    return order(std::memcmp(a, b, std::min(aSize, bSize)), 0); // the zero bytes end the shorter
}

int compareGUIDs(const uint8_t* a, const uint8_t* b) {
    for (int word = 3; word >= 0; --word) {
        const auto aWord = loadUnaligned<uint64_t>(a + word * 8), bWord = loadUnaligned<uint64_t>(b + word * 8);
        if (aWord != bWord) return aWord < bWord ? -1 : 1;
    }
    return 0;
}

template <bool Total>
int compareFloats(double a, double b) {
    if constexpr (Total) {
        if (std::isnan(a) || std::isnan(b)) return order(std::isnan(a), std::isnan(b));
    }
    return order(a, b);
}

// Compares two elements of one type that can't contain others.
template <bool Total>
int compareElements(uint8_t type, const uint8_t* a, unsigned aSize, const uint8_t* b, unsigned bSize) {
    switch (static_cast<ValueType>(type)) {
    case ValueType::Int64:
        return order(decodeInteger(a), decodeInteger(b));
    case ValueType::Float:
        return compareFloats<Total>(loadUnaligned<double>(a + 1), loadUnaligned<double>(b + 1));
    case ValueType::String:
    case ValueType::Prefix:
        return compareTexts(a + 1, aSize - 1, b + 1, bSize - 1);
    case ValueType::Buffer:
    case ValueType::Pointer:
    case ValueType::Referee:
        return compareBytes(a + 5, aSize - 5, b + 5, bSize - 5);
    case ValueType::GUID:
        return compareGUIDs(a + 1, b + 1);
    default:
        return 0;
    }
}

// Moves both sides, whose first `common` bytes are equal, to the start of the element in which these end, and returns
// how many bytes are equal from there on. Everything before is equal element by element, so one side is walked for
// both; what ends within the common bytes is complete on both sides.
size_t skipCommonElements(Side& a, Side& b, size_t common) {
    const uint8_t* const start = a.at;
    const uint8_t* const last = a.at + common;
    while (a.at < last) {
        const unsigned size = internal::sizeOfElement(a.at, static_cast<unsigned>(last - a.at));
        if (size == 0) break;
        a.at += size;
    }
    b.at += a.at - start;
    return static_cast<size_t>(last - a.at);
}

template <bool Total>
int compareSides(Side a, Side b) {
    const size_t shorter = std::min(a.left(), b.left());
    const size_t common = commonPrefix(a.at, b.at, shorter);
    if (common == shorter && a.left() == b.left()) return 0;
    size_t equalBytes = skipCommonElements(a, b, common);

    LevelStack outer;
    for (;;) {
        const unsigned aSize = internal::sizeOfElement(a.at, a.left());
        const unsigned bSize = internal::sizeOfElement(b.at, b.left());
        uint8_t aType = aSize != 0 ? a.at[0] : 0;
        uint8_t bType = bSize != 0 ? b.at[0] : 0;
        const bool matchesAny = !Total && (aType == typeWildcard || bType == typeWildcard);
        if (!matchesAny) {
            if (internal::isInteger(aType)) aType = typeInt64;
            if (internal::isInteger(bType)) bType = typeInt64;
            if (aType != bType) return aType - bType;
            if (aType == 0) {
                if (const int result = compareBytes(a.at, a.left(), b.at, b.left()); result != 0) return result;
                if (outer.empty()) return 0;
                const Level level = outer.pop();
                a = level.a;
                b = level.b;
                equalBytes = 0;
                continue;
            }
            if (aType == static_cast<uint8_t>(ValueType::SubItem)) {
                outer.push({{a.at + aSize, a.end}, {b.at + bSize, b.end}});
                a = {a.at + 5, a.at + aSize};
                b = {b.at + 5, b.at + bSize};
                const size_t nested = std::min(a.left(), b.left());
                const bool known = equalBytes >= 5; // the first nested items on the way are those that differ
                equalBytes = skipCommonElements(
                    a, b, known ? std::min(equalBytes - 5, nested) : commonPrefix(a.at, b.at, nested));
                continue;
            }
            if (const int result = compareElements<Total>(aType, a.at, aSize, b.at, bSize); result != 0) return result;
        }
        a.at += aSize;
        b.at += bSize;
        equalBytes = 0;
    }
}

Side sideOf(const Item& item) {
    const uint8_t* bytes = item.getPlainBytePointer();
    return {bytes, bytes + item.getPlainSize()};
}

} // namespace

int Item::compare(const Item& a, const Item& b) {
    return compareSides<false>(sideOf(a), sideOf(b));
}

int Item::compareTotal(const Item& a, const Item& b) {
    return compareSides<true>(sideOf(a), sideOf(b));
}

} // namespace kiv
