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

// Where both sides go on after a nested item. Plain pointers all through this file: pairs of them in structures come
// back from the stack as vectors.
struct Level {
    const uint8_t *a, *aEnd, *b, *bEnd;
};

// Where comparison goes on after nested items, innermost last. Ordinary nesting needs no allocation.
class LevelStack {
public:
    bool empty() const { return m_count == 0; }
    void push(const uint8_t* a, const uint8_t* aEnd, const uint8_t* b, const uint8_t* bEnd) {
        if (m_count >= inlineLevels) m_more.emplace_back();
        Level& level = m_count < inlineLevels ? m_levels[m_count] : m_more.back();
        level.a = a;
        level.aEnd = aEnd;
        level.b = b;
        level.bEnd = bEnd;
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

// As internal::sizeOfElement(), with the numbers first and in place: a predicted branch waits for no type byte.
KIV_ALWAYS_INLINE unsigned sizeOfElement(const uint8_t* bytes, unsigned left) {
    if (left >= 2) {
        const auto type = static_cast<ValueType>(*bytes);
        if (type == ValueType::Int8) return 2;
        if (type == ValueType::Int16 && left >= 3) return 3;
        if (type == ValueType::Int32 && left >= 5) return 5;
        if (type == ValueType::Int64 && left >= 9) return 9;
    }
    return internal::sizeOfElement(bytes, left);
}

// The start of the element in which the bytes up to `last` end, walking from element to element.
KIV_ALWAYS_INLINE const uint8_t* lastStart(const uint8_t* at, const uint8_t* last) {
    while (at != last) {
        const unsigned size = sizeOfElement(at, static_cast<unsigned>(last - at));
        if (size == 0) break;
        at += size;
    }
    return at;
}

// Both sides begin at the start of an element. `common` of their first bytes are equal, and so are the elements that
// end within these: one side is walked for both, and what is complete within the common bytes is complete on both
// sides.
template <bool Total>
int compareRuns(const uint8_t* a, const uint8_t* aEnd, const uint8_t* b, const uint8_t* bEnd, size_t common) {
    LevelStack outer;
    for (;;) {
        const uint8_t* const start = lastStart(a, a + common);
        common -= static_cast<size_t>(start - a);
        b += start - a;
        a = start;

        const unsigned aSize = sizeOfElement(a, static_cast<unsigned>(aEnd - a));
        const unsigned bSize = sizeOfElement(b, static_cast<unsigned>(bEnd - b));
        uint8_t aType = aSize != 0 ? *a : 0;
        uint8_t bType = bSize != 0 ? *b : 0;
        const bool matchesAny = !Total && (aType == typeWildcard || bType == typeWildcard);
        if (!matchesAny) {
            if (internal::isInteger(aType)) aType = typeInt64;
            if (internal::isInteger(bType)) bType = typeInt64;
            if (aType != bType) return aType - bType;
            if (aType == 0) {
                const int result = compareBytes(a, static_cast<size_t>(aEnd - a), b, static_cast<size_t>(bEnd - b));
                if (result != 0 || outer.empty()) return result;
                const Level level = outer.pop();
                a = level.a, aEnd = level.aEnd, b = level.b, bEnd = level.bEnd;
                common = 0;
                continue;
            }
            if (aType == static_cast<uint8_t>(ValueType::SubItem)) {
                outer.push(a + aSize, aEnd, b + bSize, bEnd);
                aEnd = a + aSize;
                bEnd = b + bSize;
                a += 5;
                b += 5;
                const auto shorter = static_cast<size_t>(std::min(aEnd - a, bEnd - b));
                common = common >= 5 ? std::min(common - 5, shorter) : commonPrefix(a, b, shorter);
                continue;
            }
            if (const int result = compareElements<Total>(aType, a, aSize, b, bSize); result != 0) return result;
        }
        a += aSize;
        b += bSize;
        common = 0;
    }
}

template <bool Total>
int compareItems(const Item& x, const Item& y) {
    const uint8_t* const a = x.getPlainBytePointer();
    const uint8_t* const b = y.getPlainBytePointer();
    const size_t aSize = x.getPlainSize(), bSize = y.getPlainSize();
    const size_t shorter = std::min(aSize, bSize);
    const size_t common = commonPrefix(a, b, shorter);
    if (common == shorter && aSize == bSize) return 0;
    return compareRuns<Total>(a, a + aSize, b, b + bSize, common);
}

} // namespace

int Item::compare(const Item& a, const Item& b) {
    return compareItems<false>(a, b);
}

int Item::compareTotal(const Item& a, const Item& b) {
    return compareItems<true>(a, b);
}

} // namespace kiv
