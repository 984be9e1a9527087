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
    return buffer.empty() ? std::string()
                          : std::string(reinterpret_cast<const char*>(buffer.getBytePointer()), buffer.getSize());
}

TEST(Buffer, AppendersGrowByAnEighthInWholePages) {
    Buffer buffer;
    unsigned last = 0;
    std::vector<unsigned> capacities;
    for (int i = 0; i < 10; ++i) {
        buffer.append(bytes("x"));
        if (buffer.getReservedSize() != last) capacities.push_back(last = buffer.getReservedSize());
    }
    EXPECT_EQ(capacities, (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 7, 9, 11}));
    auto slack = [](unsigned size) {
        Buffer grown;
        grown.resizeExtraReserve(size);
        return grown.getReservedSize();
    };
    EXPECT_EQ(slack(3640), 4095u);
    EXPECT_EQ(slack(3641), 4096u);
    EXPECT_EQ(slack(3642), 8192u);
    EXPECT_EQ(slack(4000), 8192u);
}

TEST(Buffer, ExactGrowthAndShrinkingKeepBytesAndBlock) {
    Buffer buffer(bytes("abcdef"));
    const uint8_t* block = buffer.getBytePointer();
    buffer.resize(2);
    EXPECT_EQ(buffer.getReservedSize(), 6u);
    buffer.resize(6);
    EXPECT_EQ(buffer.getBytePointer(), block);
    EXPECT_EQ(text(buffer), "abcdef");
    buffer.resize(7);
    EXPECT_EQ(buffer.getReservedSize(), 7u);
    buffer.reserveAdditionally(0, 100); // enough room for the least is enough
    EXPECT_EQ(buffer.getReservedSize(), 7u);
    buffer.reserveAdditionally(1, 100);
    EXPECT_EQ(buffer.getReservedSize(), 107u);
    buffer.reserveTotal(50);
    EXPECT_EQ(buffer.getReservedSize(), 107u);
    buffer.clear();
    EXPECT_EQ(buffer.getReservedSize(), 107u);
    buffer.free();
    EXPECT_EQ(buffer.getBytePointer(), nullptr);
    EXPECT_EQ(buffer.getReservedSize(), 0u);
}

TEST(Buffer, SourcesInsideTheBufferSurviveGrowthAndMoves) {
    auto after = [](auto change) {
        Buffer buffer(bytes("abcdef"));
        change(buffer);
        return text(buffer);
    };
    EXPECT_EQ(after([](Buffer& b) { b.append(b); }), "abcdefabcdef");
    EXPECT_EQ(after([](Buffer& b) { b.append(b.getBytePointer() + 4, 2); }), "abcdefef");
    EXPECT_EQ(after([](Buffer& b) { b.set(b.getBytePointer() + 1, 3); }), "bcd");
    EXPECT_EQ(after([](Buffer& b) { b.insertFront({b.getBytePointer() + 2, 3}); }), "cdeabcdef");
    EXPECT_EQ(after([](Buffer& b) {
                  b.reserveTotal(64);
                  b.insertFront({b.getBytePointer() + 2, 4});
              }),
              "cdefabcdef");
    EXPECT_EQ(after([](Buffer& b) { b = *&b; }), "abcdef");
    EXPECT_EQ(after([](Buffer& b) { b = static_cast<Buffer&&>(*&b); }), "abcdef");
}

TEST(Buffer, SizesPastTheLimitThrowAndLeaveTheBufferAsItWas) {
    Buffer buffer(bytes("ab"));
    EXPECT_THROW(buffer.append(UINT_MAX), std::length_error);
    EXPECT_THROW(buffer.append(UINT_MAX - 1), std::length_error);
    EXPECT_THROW(buffer.reserveAdditionally(UINT_MAX, 0), std::length_error);
    const uint8_t byte = 0;
    EXPECT_THROW(Buffer(&byte, UINT_MAX, &byte, 1), std::length_error);
    EXPECT_EQ(text(buffer), "ab");
    EXPECT_EQ(buffer.getReservedSize(), 2u);
}

TEST(Buffer, EmptySourcesAndNullPointersAreHarmless) {
    Buffer buffer;
    buffer.append(0);
    buffer.append(ConstByteSpan());
    buffer.insertFront(ConstByteSpan());
    buffer.set(nullptr, 0);
    buffer.eraseFront(1);
    buffer.eraseBack(1);
    EXPECT_EQ(buffer.getBytePointer(), nullptr);
    EXPECT_EQ(buffer.appendReserve().getSize(), 0u);
    buffer.insertFront(bytes("ab"));
    EXPECT_EQ(text(buffer), "ab");
    EXPECT_EQ(buffer.getReservedSize(), 2u);
    buffer.appendStringWithNull(nullptr);
    EXPECT_EQ(text(buffer), std::string("ab\0", 3));
}

TEST(Buffer, ProducersWriteInPlace) {
    Buffer buffer(bytes("ab"));
    buffer.reserveAdditionally(8, 0);
    auto tail = buffer.appendReserve();
    ASSERT_EQ(tail.getSize(), 8u);
    tail[0] = 'c';
    buffer.appendCommit(1);
    EXPECT_EQ(text(buffer), "abc");
    *buffer.append(1) = 'd';
    EXPECT_EQ(text(buffer), "abcd");
}

TEST(Buffer, ErasingMatchesAString) {
    std::mt19937 random(20261121);
    for (int round = 0; round < 200; ++round) {
        std::string model(random() % 20, ' ');
        for (char& c : model) c = static_cast<char>('a' + random() % 26);
        Buffer buffer(bytes(model));
        const auto front = static_cast<unsigned>(random() % 24), back = static_cast<unsigned>(random() % 24);
        buffer.eraseFront(front);
        model.erase(0, front);
        buffer.eraseBack(back);
        model.resize(model.size() - std::min<size_t>(model.size(), back));
        EXPECT_EQ(text(buffer), model);
    }
}

TEST(Buffer, OrderIsByFirstDifferentByteThenBySize) {
    auto compare = [](const char* a, const char* b) { return Buffer::compare(bytes(a), bytes(b)); };
    EXPECT_EQ(compare("ab", "abc"), -1);
    EXPECT_EQ(compare("", ""), 0);
    EXPECT_GT(compare("abd", "abc"), 0);
    EXPECT_LT(compare("abc", "\xFF"), 0);
    EXPECT_TRUE(Buffer(bytes("a")) == Buffer(bytes("a")));
    EXPECT_TRUE(Buffer(bytes("a")) != Buffer(bytes("ab")));
    // The standard's function objects like to compare what converts to a pointer by address.
    const Buffer one(bytes("a")), same(bytes("a"));
    EXPECT_FALSE(std::less<>()(one, same) || std::less<>()(same, one));
    EXPECT_TRUE(std::ranges::less_equal()(one, same) && std::ranges::less_equal()(same, one));
}

TEST(Buffer, TestsItsSizeAndNotItsPointer) {
    Buffer buffer(bytes("abc"));
    buffer.clear();
    EXPECT_NE(buffer.getBytePointer(), nullptr);
    EXPECT_FALSE(buffer ? true : false);
    const bool implicit = buffer;
    EXPECT_FALSE(implicit);
    buffer.resize(3);
    EXPECT_EQ(buffer[0], 'a');
    EXPECT_EQ(buffer[2L], 'c');
    Buffer other;
    other = std::move(buffer);
    EXPECT_EQ(text(other), "abc");
    EXPECT_TRUE(buffer.empty());
}

} // namespace
