// The order of items. Equal leading bytes are equal leading elements, so comparison looks for the first different byte
// and for the element that holds it, which decides but for numbers with several forms and, unless the order is total,
// wildcards and NaN. After these, items are compared element by element with an explicit stack of nested ones.

#include "kiv/data/Item.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <memory_resource>
#include <vector>

namespace kiv {

namespace {

using internal::differenceAt;
using internal::loadUnaligned;

constexpr auto typeInt64 = static_cast<uint8_t>(ValueType::Int64);
constexpr auto typeWildcard = static_cast<uint8_t>(ValueType::Wildcard);

template <class T>
int order(T a, T b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

// How many leading bytes are equal.
KIV_ALWAYS_INLINE size_t commonPrefix(const uint8_t* a, const uint8_t* b, size_t size) {
    size_t at = 0;
    for (; size - at >= 32; at += 32) {
        if ((differenceAt(a, b, at) | differenceAt(a, b, at + 8) | differenceAt(a, b, at + 16) |
             differenceAt(a, b, at + 24)) != 0)
            break;
    }
    while (size - at >= 8) {
        const uint64_t difference = differenceAt(a, b, at);
        if (difference != 0) return at + (static_cast<size_t>(std::countr_zero(difference)) >> 3);
        at += 8;
        // The last bytes are compared as a word that begins among the equal ones.
        if (at < size && size - at < 8) at = size - 8;
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

// Compares two elements of one class that can't contain others.
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

template <class T>
int orderOfPayloads(const uint8_t* a, const uint8_t* b) {
    return order(loadUnaligned<T>(a + 1), loadUnaligned<T>(b + 1));
}

// What the first elements of two runs are and how they compare.
struct Pair {
    uint32_t aSize = 0, bSize = 0;
    int result = 0;     // 0 as far as it is known without following nested items
    bool nests = false; // a nested item on both sides
    bool ends = false;  // no element on either side
};

template <bool Total>
KIV_NOINLINE Pair compareFirst(const uint8_t* a, size_t aLeft, const uint8_t* b, size_t bLeft) {
    Pair pair;
    pair.aSize = internal::sizeOfElement(a, static_cast<unsigned>(aLeft));
    pair.bSize = internal::sizeOfElement(b, static_cast<unsigned>(bLeft));
    uint8_t aType = pair.aSize != 0 ? *a : 0;
    uint8_t bType = pair.bSize != 0 ? *b : 0;
    if (!Total && (aType == typeWildcard || bType == typeWildcard)) return pair;
    if (internal::isInteger(aType)) aType = typeInt64;
    if (internal::isInteger(bType)) bType = typeInt64;
    if (aType != bType) {
        pair.result = aType - bType;
    } else if (aType == 0) {
        pair.ends = true;
        pair.result = compareBytes(a, aLeft, b, bLeft);
    } else if (aType == static_cast<uint8_t>(ValueType::SubItem)) {
        pair.nests = true;
    } else {
        pair.result = compareElements<Total>(aType, a, pair.aSize, b, pair.bSize);
    }
    return pair;
}

// Compares element by element, with a stack of what follows after nested items.
template <bool Total>
KIV_NOINLINE int compareAll(const uint8_t* a, size_t aLeft, const uint8_t* b, size_t bLeft) {
    struct Level {
        const uint8_t* a;
        size_t aLeft;
        const uint8_t* b;
        size_t bLeft;
    };
    // Inline items nest at most seven times: their levels stay off the heap.
    alignas(Level) std::byte space[16 * sizeof(Level)];
    std::pmr::monotonic_buffer_resource memory(space, sizeof(space));
    std::pmr::vector<Level> outer(&memory);
    for (;;) {
        const Pair pair = compareFirst<Total>(a, aLeft, b, bLeft);
        if (pair.result != 0) return pair.result;
        if (pair.ends) {
            if (outer.empty()) return 0;
            const Level level = outer.back();
            outer.pop_back();
            a = level.a, aLeft = level.aLeft, b = level.b, bLeft = level.bLeft;
            continue;
        }
        if (pair.nests) {
            outer.push_back({a + pair.aSize, aLeft - pair.aSize, b + pair.bSize, bLeft - pair.bSize});
            a += 5, aLeft = pair.aSize - 5;
            b += 5, bLeft = pair.bSize - 5;
        } else {
            a += pair.aSize, aLeft -= pair.aSize;
            b += pair.bSize, bLeft -= pair.bSize;
        }
    }
}

// Where the first different byte lies: offsets of the element that holds it or begins with it, and of the end of the
// nested item around that (0: none). Both are the same on either side.
struct Place {
    size_t element;
    size_t nestedEnd;
};

// Walks over the elements that end within the first `different` bytes, and into the nested item that does not; `size`
// is that of the shorter side. Branches, not a table of sizes: a predicted branch lets the next element begin before
// this one's type byte has been loaded. It calls nothing, so that all of it stays in registers.
KIV_NOINLINE Place findPlace(const uint8_t* bytes, size_t different, size_t size) {
    size_t at = 0, nestedEnd = 0;
    if (different == 0) return {0, 0};
    for (;;) {
        const auto type = static_cast<ValueType>(bytes[at]);
        size_t next;
        if (type == ValueType::Int8) {
            next = at + 2;
        } else if (type == ValueType::Int32) {
            next = at + 5;
        } else if (type == ValueType::Int16) {
            next = at + 3;
        } else if (type == ValueType::Int64) {
            next = at + 9;
        } else {
            const size_t left = different - at;
            switch (type) {
            case ValueType::Float:
                next = at + 9;
                break;
            case ValueType::String:
            case ValueType::Prefix:
                next = at + 2 + internal::findZero(bytes + at + 1, static_cast<unsigned>(size - at - 1));
                break;
            case ValueType::SubItem:
                if (left < 5) return {at, nestedEnd};
                next = at + 5 + loadUnaligned<uint32_t>(bytes + at + 1);
                if (next > different) {
                    if (next > size) return {at, nestedEnd};
                    nestedEnd = size = next;
                    next = at + 5;
                }
                break;
            case ValueType::Buffer:
            case ValueType::Pointer:
            case ValueType::Referee:
                if (left < 5) return {at, nestedEnd};
                next = at + 5 + loadUnaligned<uint32_t>(bytes + at + 1);
                break;
            case ValueType::GUID:
                next = at + 33;
                break;
            case ValueType::NIL:
            case ValueType::False:
            case ValueType::True:
            case ValueType::Meta:
            case ValueType::Wildcard:
            case ValueType::End:
                next = at + 1;
                break;
            default:
                return {at, nestedEnd};
            }
        }
        if (next >= different) return {next == different ? next : at, nestedEnd};
        at = next;
    }
}

// What an element that both sides begin decides, when it holds the first different byte and is a number; else 0.
KIV_ALWAYS_INLINE int orderOfNumbers(const uint8_t* a, const uint8_t* b, size_t size) {
    const auto type = static_cast<ValueType>(*a);
    if (type == ValueType::Int8 && size >= 2) return orderOfPayloads<int8_t>(a, b);
    if (type == ValueType::Int16 && size >= 3) return orderOfPayloads<int16_t>(a, b);
    if (type == ValueType::Int32 && size >= 5) return orderOfPayloads<int32_t>(a, b);
    if (type == ValueType::Int64 && size >= 9) return orderOfPayloads<int64_t>(a, b);
    return 0;
}

// Goes on from the element at the first different byte where that is no number. No stack is needed until it turns out
// that the difference decides nothing: then what follows after nested items matters, and all is compared anew.
template <bool Total>
KIV_NOINLINE int compareFrom(const Item& x, const Item& y, Place place) {
    const uint8_t* a = x.getPlainBytePointer() + place.element;
    const uint8_t* b = y.getPlainBytePointer() + place.element;
    size_t aSize = (place.nestedEnd != 0 ? place.nestedEnd : x.getPlainSize()) - place.element;
    size_t bSize = (place.nestedEnd != 0 ? place.nestedEnd : y.getPlainSize()) - place.element;
    for (;;) {
        const Pair pair = compareFirst<Total>(a, aSize, b, bSize);
        if (pair.result != 0) return pair.result;
        if (!pair.nests) break;
        // Nested items of different sizes: a difference within.
        a += 5, aSize = pair.aSize - 5;
        b += 5, bSize = pair.bSize - 5;
        const size_t shorter = std::min(aSize, bSize);
        place = findPlace(a, commonPrefix(a, b, shorter), shorter);
        if (place.nestedEnd != 0) aSize = bSize = place.nestedEnd;
        a += place.element, aSize -= place.element;
        b += place.element, bSize -= place.element;
    }
    return compareAll<Total>(x.getPlainBytePointer(), x.getPlainSize(), y.getPlainBytePointer(), y.getPlainSize());
}

// `common` leading bytes are equal. Most keys and values differ in a number: that is decided here, the rest elsewhere.
template <bool Total>
KIV_NOINLINE int compareDifferent(const Item& x, const Item& y, size_t common) {
    const uint8_t* const a = x.getPlainBytePointer();
    const size_t shorter = std::min(x.getPlainSize(), y.getPlainSize());
    const Place place = findPlace(a, common, shorter);
    if (place.element != common) {
        const uint8_t* const b = y.getPlainBytePointer();
        const size_t size = (place.nestedEnd != 0 ? place.nestedEnd : shorter) - place.element;
        if (const int result = orderOfNumbers(a + place.element, b + place.element, size); result != 0) return result;
    }
    return compareFrom<Total>(x, y, place);
}

template <bool Total>
KIV_ALWAYS_INLINE int compareItems(const Item& x, const Item& y) {
    const size_t shorter = std::min(x.getPlainSize(), y.getPlainSize());
    const size_t common = commonPrefix(x.getPlainBytePointer(), y.getPlainBytePointer(), shorter);
    if (common == shorter && x.getPlainSize() == y.getPlainSize()) return 0;
    return compareDifferent<Total>(x, y, common);
}

} // namespace

int Item::compare(const Item& a, const Item& b) {
    return compareItems<false>(a, b);
}

int Item::compareTotal(const Item& a, const Item& b) {
    return compareItems<true>(a, b);
}

} // namespace kiv
