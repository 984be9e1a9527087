// Hunts: an order that differs from the element-by-element definition behind the shortcut over equal bytes, orders that
// are no orders, and nesting that exhausts the stack.
#include "kiv/data/Item.h"
#include "tests/data/ItemReference.h"
#include "tests/data/Items.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kiv;
using namespace support;
using namespace std::string_literals;

class RandomItems {
public:
    explicit RandomItems(unsigned seed) : m_random(seed) {}

    Item next(int depth = 0) {
        Item item;
        for (size_t i = below(5); i > 0; --i) addElement(item, depth);
        if (below(12) == 0) item.concatItem(plain("\x03\x04\x08\x00\x10"s.substr(below(5))));
        return item;
    }
    size_t below(size_t limit) { return static_cast<size_t>(m_random()) % limit; }

private:
    void addElement(Item& item, int depth) {
        static constexpr double numbers[] = {0.0, -0.0, 1.5, -1e300, INFINITY, NAN};
        static const char* const texts[] = {"", "a", "ab", "b", "\xFF", "a longer text than a word"};
        const uint8_t bytes[] = {1, 2, 3};
        const auto size = static_cast<unsigned>(below(4));
        const size_t kind = below(14);
        if (kind == 0) item.addInteger(static_cast<long long>(below(5)) - 2);
        if (kind == 1) item.addInteger(1ll << below(63));
        if (kind == 2) item.concatItem(plain("\x01\x02\0\0\0\0\0\0\0"s)); // 2 in more bytes than needed
        if (kind == 3) item.addFloat(numbers[below(6)]);
        if (kind == 4) item.addString(texts[below(6)]);
        if (kind == 5) item.addPrefix(texts[below(6)]);
        if (kind == 6) item.addBuffer(bytes, size);
        if (kind == 7) item.addReferee(bytes, size);
        if (kind == 8) item.addPointer(bytes, size);
        if (kind == 9) item.addGUID(GUID(below(2), below(2), 0, below(2)));
        if (kind == 10) item.addWildcard();
        if (kind == 11) item.concatItem(plain(below(2) == 0 ? "\xC0" : "\xFF"));
        if (kind == 12) item.addBool(below(2) == 0);
        if (kind == 13 && depth < 3) item.addItem(next(depth + 1));
    }
    std::mt19937 m_random;
};

Item mutated(RandomItems& random, const Item& item) {
    std::string bytes(reinterpret_cast<const char*>(item.getPlainBytePointer()), item.getPlainSize());
    if (!bytes.empty()) bytes[random.below(bytes.size())] = static_cast<char>(random.below(256));
    return plain(bytes);
}

TEST(ItemCompare, AgreesWithTheDefinitionOnRandomItems) {
    RandomItems random(20261121);
    const ItemReference literal(false), total(true);
    for (int round = 0; round < 40000; ++round) {
        const Item a = random.next();
        const Item b = round % 2 == 0 ? random.next() : mutated(random, a);
        ASSERT_EQ(sign(Item::compare(a, b)), literal.compare(a, b)) << a.getBase16() << " " << b.getBase16();
        ASSERT_EQ(sign(Item::compareTotal(a, b)), total.compare(a, b)) << a.getBase16() << " " << b.getBase16();
    }
}

TEST(ItemCompare, TheTotalOrderIsOne) {
    RandomItems random(7);
    std::vector<Item> items;
    for (int i = 0; i < 120; ++i) items.push_back(random.next());
    std::sort(items.begin(), items.end(), std::less<Item>());
    for (size_t i = 0; i < items.size(); ++i) {
        for (size_t j = i; j < items.size(); ++j) {
            EXPECT_LE(Item::compareTotal(items[i], items[j]), 0);
            EXPECT_EQ(sign(Item::compareTotal(items[i], items[j])), -sign(Item::compareTotal(items[j], items[i])));
        }
    }
}

TEST(ItemCompare, SubtreesAreRunsBetweenTheirBounds) {
    auto with = [](const char* mark) { return joined(list(1), plain(mark)); };
    const Item referee = made([](Item& i) { i.add(1), i.addReferee(nullptr, 0); });
    const Item ascending[] = {list(1), list(1, "x"), list(1, true), with("\xC0"), referee, with("\xFF"), list(2)};
    for (size_t i = 0; i < std::size(ascending); ++i)
        for (size_t j = 0; j < i; ++j) EXPECT_LT(ascending[j], ascending[i]) << j << " " << i;
    for (const Item& matched : {list(1, 7), list(1, "x"), list(1)}) EXPECT_EQ(with("\xFE"), matched);
    EXPECT_LT(Item::compareTotal(referee, with("\xFE")), 0);
    EXPECT_LT(Item::compareTotal(with("\xFE"), with("\xFF")), 0);
    EXPECT_EQ(Item::compare("a", prefix("a")), 3 - 12);
    EXPECT_EQ(Item::compare(plain("\x01\x05\0\0\0\0\0\0\0"s), list(5)), 0);
    EXPECT_TRUE(Item::compareTotal(INFINITY, NAN) < 0 && Item::compare(INFINITY, NAN) == 0);
}

TEST(ItemCompare, NestingHasNoLimit) {
    auto deep = [](size_t levels) {
        std::string bytes;
        for (size_t left = levels; left > 0; --left) {
            const auto size = static_cast<uint32_t>((left - 1) * 5);
            bytes += '\x09' + std::string(reinterpret_cast<const char*>(&size), 4);
        }
        return bytes;
    };
    const Item a = plain(deep(60000));
    EXPECT_LT(Item::compare(a, plain(deep(60000) + "\x08\x01")), 0);
    EXPECT_EQ(Item::compare(a, a), 0);
    EXPECT_GT(Item::compare(a, plain(deep(59999))), 0) << "the deeper one has an element where the other ends";
    EXPECT_TRUE(a.asString().contains("<TRAIL:") && !a.isCleanKey());
}

} // namespace
