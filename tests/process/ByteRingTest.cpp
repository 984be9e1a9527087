// Hunts: bytes lost or mixed up where the buffer ends, where it grows and where its contents are moved.

#include "kiv/process/ByteRing.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

using kiv::internal::ByteRing;

TEST(ByteRing, IsAQueueOfBytes) {
    std::mt19937 random(7);
    const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
    ByteRing ring(16);
    std::string model, taken;
    char next = 0;
    const auto fill = [&](char* to, size_t count) {
        for (size_t i = 0; i < count; ++i) model += to[i] = next++;
        ring.commit(count);
    };
    for (int step = 0; step < 200000; ++step) {
        const size_t choice = below(20), count = below(40);
        if (choice < 8) {
            const std::span<char> room = ring.writable();
            ASSERT_EQ(room.empty(), ring.full());
            fill(room.data(), std::min(count, room.size()));
        } else if (choice < 10) {
            char* const room = ring.reserve(count, 64);
            ASSERT_EQ(room != nullptr, model.size() + count <= 64);
            if (room) fill(room, count);
        } else if (choice < 15) {
            const size_t some = std::min(count, ring.readable().size());
            ASSERT_EQ(ring.readable().substr(0, some), model.substr(0, some));
            ring.consume(some);
            model.erase(0, some);
        } else if (choice < 19) {
            const size_t some = std::min(count, model.size());
            ring.take(some, taken);
            ASSERT_EQ(taken, model.substr(0, some));
            model.erase(0, some);
        } else if (count == 0) {
            ring.clear();
            model.clear();
            ASSERT_EQ(ring.capacity(), 16u);
        }
        ASSERT_EQ(ring.size(), model.size());
        const size_t from = below(model.size() + 1);
        ASSERT_EQ(ring.find(next, from), model.find(next, from));
        ASSERT_EQ(ring.find(static_cast<char>(next - 3), from), model.find(static_cast<char>(next - 3), from));
        ASSERT_LE(ring.capacity(), 64u);
    }
}
