// Hunts: an order that differs from the element-by-element definition behind the shortcut over equal bytes, and
// nesting that exhausts the stack.
#include "kiv/data/Item.h"
#include "tests/data/ItemReference.h"
#include "tests/data/RandomKeys.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using namespace kiv;
using namespace support;
using namespace std::string_literals;

// Every other pair differs in one byte.
TEST(ItemCompare, AgreesWithTheDefinitionOnRandomItems) {
    RandomKeys keys(20261121, 1000);
    const ItemReference literal(false), total(true);
    for (int round = 0; round < 40000; ++round) {
        const Item a = keys.key();
        std::string bytes(reinterpret_cast<const char*>(a.getPlainBytePointer()), a.getPlainSize());
        if (!bytes.empty()) bytes[keys.random.below(bytes.size())] = static_cast<char>(keys.random.next());
        const Item b = round % 2 == 0 ? keys.key() : plain(bytes);
        ASSERT_EQ(sign(Item::compare(a, b)), literal.compare(a, b)) << a.getBase16() << " " << b.getBase16();
        ASSERT_EQ(sign(Item::compareTotal(a, b)), total.compare(a, b)) << a.getBase16() << " " << b.getBase16();
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
