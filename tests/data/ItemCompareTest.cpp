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

using kiv::GUID;
using kiv::Item;
using support::list;
using support::plain;
using support::sign;
using Reference = support::ItemReference;

class RandomItems {
public:
    explicit RandomItems(unsigned seed) : m_random(seed) {}

    Item next(int depth = 0) {
        Item item;
        for (size_t i = below(5); i > 0; --i) addElement(item, depth);
        if (below(12) == 0) item.concatItem(plain(std::string("\x03\x04\x08\x00\x10", 5).substr(below(5))));
        return item;
    }
    size_t below(size_t limit) { return static_cast<size_t>(m_random()) % limit; }

private:
    void addElement(Item& item, int depth) {
        static constexpr double numbers[] = {0.0, -0.0, 1.5, -1e300, INFINITY, NAN};
        static const char* const texts[] = {"", "a", "ab", "b", "\xFF", "a longer text than a word"};
        const uint8_t bytes[] = {1, 2, 3};
        switch (below(14)) {
        case 0:
            item.addInteger(static_cast<long long>(below(5)) - 2);
            break;
        case 1:
            item.addInteger(1ll << below(63));
            break;
        case 2:
            item.concatItem(plain(std::string("\x01\x02\0\0\0\0\0\0\0", 9)));
            break; // 2 in more bytes than needed
        case 3:
            item.addFloat(numbers[below(6)]);
            break;
        case 4:
            item.addString(texts[below(6)]);
            break;
        case 5:
            item.addPrefix(texts[below(6)]);
            break;
        case 6:
            item.addBuffer(bytes, static_cast<unsigned>(below(4)));
            break;
        case 7:
            item.addReferee(bytes, static_cast<unsigned>(below(4)));
            break;
        case 8:
            item.addGUID(GUID(below(2), below(2), 0, below(2)));
            break;
        case 9:
            item.addWildcard();
            break;
        case 10:
            item.concatItem(plain(below(2) == 0 ? "\xC0" : "\xFF"));
            break;
        case 11:
            item.addBool(below(2) == 0);
            break;
        case 12:
            item.addPointer(bytes, static_cast<unsigned>(below(4)));
            break;
        default:
            if (depth < 3) item.addItem(next(depth + 1));
        }
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
    const Reference literal(false), total(true);
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
    auto with = [](const char* mark) {
        Item key = list(1);
        key.concatItem(plain(mark));
        return key;
    };
    Item referee = list(1);
    referee.addReferee(nullptr, 0);
    EXPECT_LT(list(1), list(1, "x"));
    EXPECT_LT(list(1, "x"), with("\xC0"));
    EXPECT_LT(list(1, true), with("\xC0"));
    EXPECT_LT(with("\xC0"), referee);
    EXPECT_LT(referee, with("\xFF"));
    EXPECT_LT(with("\xFF"), list(2));
    EXPECT_EQ(with("\xFE"), list(1, 7));
    EXPECT_EQ(with("\xFE"), list(1, "x"));
    EXPECT_EQ(with("\xFE"), list(1)) << "a missing element too";
    EXPECT_LT(Item::compareTotal(referee, with("\xFE")), 0);
    EXPECT_LT(Item::compareTotal(with("\xFE"), with("\xFF")), 0);
    Item prefix;
    prefix.addPrefix("a");
    EXPECT_EQ(Item::compare("a", prefix), 3 - 12);
    EXPECT_EQ(Item::compare(plain(std::string("\x01\x05\0\0\0\0\0\0\0", 9)), list(5)), 0);
    EXPECT_LT(Item::compareTotal(INFINITY, NAN), 0);
    EXPECT_EQ(Item::compare(INFINITY, NAN), 0);
}

TEST(ItemCompare, NestingHasNoLimit) {
    auto nested = [](size_t levels) {
        std::string bytes;
        for (size_t left = levels; left > 0; --left) {
            const auto size = static_cast<uint32_t>((left - 1) * 5);
            bytes += '\x09';
            bytes.append(reinterpret_cast<const char*>(&size), 4);
        }
        return bytes;
    };
    const std::string deep = nested(60000);
    const Item a = plain(deep), b = plain(deep + "\x08\x01");
    EXPECT_LT(Item::compare(a, b), 0);
    EXPECT_EQ(Item::compare(a, a), 0);
    EXPECT_GT(Item::compare(a, plain(nested(59999))), 0) << "the deeper one has an element where the other ends";
    EXPECT_NE(a.asString().find("<TRAIL:"), kiv::String::npos);
    EXPECT_FALSE(a.isCleanKey());
}

} // namespace
