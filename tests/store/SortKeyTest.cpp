// Hunts: keys whose bytes order otherwise than the keys, equal keys of different bytes, and bytes beyond the room for
// them.
#include "kiv/store/SortKey.h"
#include "tests/data/ItemReference.h"
#include "tests/data/RandomKeys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using kiv::Item;
using kiv::internal::SortKey;
using support::list;
using support::plain;

int compare(const SortKey& a, const SortKey& b) {
    const int order = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
    return order != 0 ? support::sign(order) : a.size() < b.size() ? -1 : a.size() > b.size();
}

void expectSameOrder(const Item& a, const Item& b) {
    const SortKey x(a), y(b);
    ASSERT_EQ(compare(x, y), support::sign(Item::compareTotal(a, b))) << a.getBase16() << "\n" << b.getBase16();
    for (const SortKey* key : {&x, &y}) EXPECT_EQ(key->headAt(key->size()), 0u);
}

// Every beginning of nested elements of all kinds, cut anywhere, so that rests of all kinds are in all places.
std::vector<Item> beginnings() {
    using namespace std::string_literals;
    const std::string elements[] = {"\x08\x80"s, "\x09\x02\0\0\0\x0B\x03"s, "\x04\2\0\0\0\0\xFF"s, "\x03z"s, "\xC1"s,
                                    "\x07\0\1"s};
    std::vector<Item> all;
    for (const std::string& a : elements) {
        for (const std::string& b : elements) {
            const std::string whole = a + std::string(1, '\0') + b;
            for (size_t size = 0; size <= whole.size(); ++size) {
                all.push_back(plain(whole.substr(0, size)));
                all.push_back(list(all.back()));
                all.push_back(list(all.back(), 1));
            }
        }
    }
    return all;
}

TEST(SortKey, OrdersUndecodableRestsAsItemsDo) {
    const std::vector<Item> all = beginnings();
    for (const Item& a : all) {
        for (const Item& b : all) ASSERT_NO_FATAL_FAILURE(expectSameOrder(a, b));
    }
}

TEST(SortKey, OrdersNumbersAsItemsDo) {
    std::vector<Item> numbers;
    for (int bit = 0; bit < 64; ++bit) {
        for (long long more : {-1, 0, 1}) {
            const auto value = static_cast<long long>((uint64_t{1} << bit) + static_cast<uint64_t>(more));
            for (long long number : {value, ~value}) {
                numbers.emplace_back(number);
                numbers.push_back(plain('\x01' + std::string(reinterpret_cast<const char*>(&number), sizeof(number))));
                double bits;
                std::memcpy(&bits, &number, sizeof(bits));
                numbers.emplace_back(bits);
            }
        }
    }
    for (const Item& a : numbers) {
        for (const Item& b : numbers) ASSERT_NO_FATAL_FAILURE(expectSameOrder(a, b));
    }
}

// Pairs that agree in much: beginnings of one key, and keys that differ in one byte.
TEST(SortKey, OrdersHostileKeysAsItemsDo) {
    support::RandomKeys keys(7, 300);
    support::Random& random = keys.random;
    auto mutated = [&](const Item& key) {
        std::string bytes(reinterpret_cast<const char*>(key.getPlainBytePointer()), key.getPlainSize());
        for (size_t i = random.below(3); i > 0 && !bytes.empty(); --i) {
            const size_t at = random.below(bytes.size());
            bytes[at] = static_cast<char>(random.oneIn(2) ? random.below(16) : random.next());
            if (random.oneIn(3)) bytes.resize(at);
        }
        return plain(bytes);
    };
    for (int i = 0; i < 300000; ++i) {
        Item a = keys.key(), b = random.oneIn(4) ? keys.key() : a;
        if (a.getPlainSize() + b.getPlainSize() > 1000 && !random.oneIn(100)) continue;
        if (random.oneIn(2)) a = mutated(a);
        b = random.oneIn(4) ? keys.disguised(b) : mutated(b);
        if (random.oneIn(3)) a = list(a, 1), b = list(b, 1);
        ASSERT_NO_FATAL_FAILURE(expectSameOrder(a, b)) << "pair " << i;
    }
}

// What grows most, in sizes around what a key holds without a block.
TEST(SortKey, HasRoomForWhatGrows) {
    for (unsigned size = 0; size < 300; ++size) {
        const std::vector<uint8_t> zeros(size);
        Item buffer(zeros.data(), size), nested, integers, floats;
        for (unsigned i = 0; i < size; ++i) {
            nested = list(nested);
            integers.add(i % 2 ? 100 : 0x7000000000000000);
            floats.add(-1.5);
        }
        const Item rest = list(plain(std::string(size, '\0')));
        const Item* const all[] = {&buffer, &nested, &integers, &floats, &rest};
        for (const Item* a : all) {
            Item more = *a;
            more.addNIL();
            ASSERT_NO_FATAL_FAILURE(expectSameOrder(*a, more));
            for (const Item* b : all) ASSERT_NO_FATAL_FAILURE(expectSameOrder(*a, *b));
        }
    }
}

} // namespace
