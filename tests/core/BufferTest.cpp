// Hunts: wrong growth arithmetic, sources inside the buffer that move or vanish, capacities that differ from what
// callers of the in-place interface count on, and null pointers handed to the C library.
#include "kiv/core/Buffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using kiv::Buffer;
using kiv::ConstByteSpan;

ConstByteSpan bytes(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), static_cast<unsigned>(text.size())};
}

std::string text(const Buffer& buffer) {
    return buffer.empty() ? "" : std::string(reinterpret_cast<const char*>(buffer.getBytePointer()), buffer.getSize());
}

TEST(Buffer, AppendersGrowByAnEighthInWholePages) {
    Buffer buffer;
    std::vector<unsigned> capacities;
    for (int i = 0; i < 10; ++i) {
        buffer.append(bytes("x"));
        capacities.push_back(buffer.getReservedSize());
    }
    EXPECT_EQ(capacities, (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 7, 9, 9, 11}));
    auto slack = [](unsigned size, unsigned expected) {
        Buffer grown;
        grown.resizeExtraReserve(size);
        EXPECT_EQ(grown.getReservedSize(), expected);
    };
    slack(3640, 4095), slack(3641, 4096), slack(3642, 8192), slack(4000, 8192);
}

TEST(Buffer, ExactGrowthAndShrinkingKeepBytesAndBlock) {
    Buffer buffer(bytes("abcdef"));
    const uint8_t* block = buffer.getBytePointer();
    const auto reserves = [&](unsigned capacity) { EXPECT_EQ(buffer.getReservedSize(), capacity); };
    buffer.resize(2), reserves(6);
    buffer.resize(6);
    EXPECT_TRUE(buffer.getBytePointer() == block && text(buffer) == "abcdef");
    buffer.resize(7), reserves(7);
    buffer.reserveAdditionally(0, 100), reserves(7); // enough room for the least is enough
    buffer.reserveAdditionally(1, 100), reserves(107);
    buffer.reserveTotal(50), reserves(107);
    buffer.clear(), reserves(107);
    // Empty, but with a block: size and not pointer decide.
    const bool implicit = buffer;
    EXPECT_TRUE(buffer.getBytePointer() && !implicit && !(buffer ? true : false));
    buffer.free(), reserves(0);
    EXPECT_EQ(buffer.getBytePointer(), nullptr);
}

// Every change against the same on a string, with sources outside and inside the buffer, with and without spare room.
TEST(Buffer, ChangesMatchThoseOfAString) {
    std::mt19937 random(20261121);
    const auto below = [&](size_t limit) { return static_cast<unsigned>(random() % limit); };
    for (int round = 0; round < 200; ++round) {
        Buffer buffer;
        std::string model;
        for (int step = 0; step < 30; ++step) {
            std::string source(below(5), static_cast<char>('a' + below(26)));
            ConstByteSpan span = bytes(source);
            if (below(2) == 0) {
                const unsigned from = below(model.size() + 1);
                source = model.substr(from, below(9));
                span = {buffer.getBytePointer() + from, static_cast<unsigned>(source.size())};
            }
            const size_t change = model.size() > 60 ? 3 + random() % 3 : random() % 7;
            if (change == 0) buffer.append(span), model += source;
            if (change == 1) buffer.append(buffer), model += std::string(model);
            if (change == 2) buffer.insertFront(span), model = source + model;
            if (change == 3) buffer.set(span), model = source;
            if (change == 4) buffer.eraseFront(static_cast<unsigned>(source.size())), model.erase(0, source.size());
            if (change == 5) buffer.eraseBack(7), model.resize(model.size() - std::min<size_t>(model.size(), 7));
            if (change == 6) buffer.reserveAdditionally(below(20), 0);
            ASSERT_EQ(text(buffer), model) << change;
        }
        const std::string before = model;
        buffer = *&buffer;
        buffer = static_cast<Buffer&&>(*&buffer);
        EXPECT_EQ(text(buffer), before);
        const Buffer moved = std::move(buffer);
        EXPECT_TRUE(buffer.empty() && text(moved) == before);
    }
}

TEST(Buffer, SizesPastTheLimitThrowAndLeaveTheBufferAsItWas) {
    Buffer buffer(bytes("ab"));
    for (const unsigned size : {UINT_MAX, UINT_MAX - 1}) EXPECT_THROW(buffer.append(size), std::length_error);
    EXPECT_THROW(buffer.reserveAdditionally(UINT_MAX, 0), std::length_error);
    const uint8_t byte = 0;
    EXPECT_THROW(Buffer(&byte, UINT_MAX, &byte, 1), std::length_error);
    EXPECT_TRUE(text(buffer) == "ab" && buffer.getReservedSize() == 2);
}

TEST(Buffer, EmptySourcesAreHarmlessAndProducersWriteInPlace) {
    Buffer buffer;
    buffer.append(0);
    buffer.set(nullptr, 0);
    buffer.append(ConstByteSpan()), buffer.insertFront(ConstByteSpan());
    buffer.eraseFront(1), buffer.eraseBack(1);
    EXPECT_TRUE(buffer.getBytePointer() == nullptr && buffer.appendReserve().getSize() == 0);
    buffer.insertFront(bytes("ab"));
    EXPECT_EQ(buffer.getReservedSize(), 2u);
    buffer.reserveAdditionally(8, 0);
    ASSERT_EQ(buffer.appendReserve().getSize(), 8u);
    buffer.appendReserve()[0] = 'c';
    buffer.appendCommit(1);
    *buffer.append(1) = 'd';
    buffer.appendStringWithNull(nullptr);
    EXPECT_EQ(text(buffer), std::string("abcd\0", 5));
}

TEST(Buffer, OrderIsByFirstDifferentByteThenBySize) {
    auto compare = [](const char* a, const char* b) { return Buffer::compare(bytes(a), bytes(b)); };
    EXPECT_TRUE(compare("ab", "abc") == -1 && compare("", "") == 0 && compare("abd", "abc") > 0);
    EXPECT_LT(compare("abc", "\xFF"), 0);
    // The standard's function objects like to compare what converts to a pointer by address.
    const Buffer one(bytes("a")), same(bytes("a"));
    EXPECT_TRUE(one == same && one != Buffer(bytes("ab")) && one[0] == 'a' && one[0L] == 'a');
    EXPECT_FALSE(std::less<>()(one, same) || std::less<>()(same, one));
    EXPECT_TRUE(std::ranges::less_equal()(one, same) && std::ranges::less_equal()(same, one));
}

} // namespace
