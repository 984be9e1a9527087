// Hunts: operations that look at more pages, or ask for more memory, than they must. Counted, so that the machine does
// not matter.
#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"
#include "tests/support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace kiv;
using support::list;

constexpr uint64_t entries = 200000;
// Three levels hold them: the pages that one search looks at.
constexpr uint64_t levels = 3;

class PageTreeCosts : public testing::Test {
protected:
    PageTreeCosts() {
        for (uint64_t i = 0; i < entries; ++i) m_store.set(key(i), value('a'));
    }
    // In an order that leaps through the whole store.
    static Item key(uint64_t i) { return list("study", i * 7919 % entries); }
    static Item value(char letter) { return Item(std::string(40, letter).c_str()); }

    template <class Work>
    uint64_t visitsOf(Work work) {
        const uint64_t before = m_store.lastData().getPageVisits();
        work();
        return m_store.lastData().getPageVisits() - before;
    }
    void setTen() {
        for (uint64_t i = 0; i < 10; ++i) m_store.set(key(i), m_values[i % 2]);
    }
    void removeTen() {
        for (uint64_t i = 0; i < 10; ++i) m_store.remove(key(i), key(i));
    }

    MemoryStore m_store{true};
    const Item m_values[2] = {value('b'), value('c')};
};

TEST_F(PageTreeCosts, TransactionsCostWhatTheyChange) {
    m_store.begin(); // from here on there is a journal to use again
    setTen();
    m_store.rollback();
    uint64_t visits = 0;
    const size_t allocations = support::allocationsOf([&] {
        EXPECT_EQ(visitsOf([&] { m_store.begin(); }), 0u);
        visits = visitsOf([&] { setTen(); });
        visits += visitsOf([&] { m_store.rollback(); });
    });
    EXPECT_LE(visits, 2 * 10 * levels);
    EXPECT_GE(visits, 2 * 10 * levels) << "visits are not counted, or there are fewer levels";
    EXPECT_EQ(m_store.get(key(0))->asString(), value('a').asString());
    if (support::countsLibraryAllocations()) {
        EXPECT_LE(allocations, 10u);
        m_store.begin();
        const size_t ofBegin = support::allocationsOf([&] {
            m_store.rollback();
            m_store.begin();
        });
        EXPECT_EQ(ofBegin, 0u);
        removeTen();
        EXPECT_LE(support::allocationsOf([&] { m_store.rollback(); }), 10u);
    }
}

TEST_F(PageTreeCosts, RemovingARangeLooksAtPagesNotAtKeys) {
    m_store.begin();
    const uint64_t visits = visitsOf([&] { m_store.remove(list("study", 50000), list("study", 149999)); });
    EXPECT_EQ(m_store.lastData().getCount(), entries - 100000);
    const uint64_t pages = m_store.lastData().getPageMemory() / 4096;
    EXPECT_LE(visits, (levels + 1) * pages);
    EXPECT_LE(visits, 100000 / 8);
    EXPECT_LE(visitsOf([&] { m_store.remove(Item("a"), Item("b")); }), 2 * levels) << "an empty range";
}

TEST_F(PageTreeCosts, WalksSearchNothing) {
    Item item;
    uint64_t count = 0;
    const auto walk = [&] {
        for (bool more = m_store.first(item); more; more = m_store.next(item, item))
            count += m_store.get(item) != nullptr;
        while (m_store.prev(item, item)) ++count;
    };
    EXPECT_EQ(visitsOf(walk), 0u);
    EXPECT_EQ(count, 2 * entries - 1);
}

// Pages that removals leave sparse are joined, whatever the order.
TEST_F(PageTreeCosts, MemoryShrinksWithTheEntries) {
    const uint64_t full = m_store.lastData().getPageMemory();
    for (uint64_t i = 0; i < entries * 9 / 10; ++i) m_store.remove(key(i), key(i));
    EXPECT_EQ(m_store.lastData().getCount(), entries / 10);
    m_store.remove(Item(), Item(1));
    for (uint64_t i = 0; i < entries; ++i) m_store.remove(key(i), key(i));
    EXPECT_LT(m_store.lastData().getPageMemory(), full / 8); // one chunk is kept
}

} // namespace
