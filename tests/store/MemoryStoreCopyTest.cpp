// Hunts: copies that share pages or transactions with their original, and moved stores that left some of theirs behind.
#include "kiv/store/MemoryStore.h"
#include "tests/store/RandomKeys.h"
#include "tests/store/StoreModel.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace {

using kiv::Item;
using kiv::MemoryStore;
using support::StoreModel;

// Two transactions deep, with changes in each.
class MemoryStoreCopy : public testing::Test {
protected:
    MemoryStoreCopy() {
        support::RandomKeys keys(4, 500);
        for (int i = 0; i < 900; ++i) {
            if (i % 300 == 299) m_model.begin();
            m_model.set(keys.key(), keys.value());
        }
        m_model.begin();
    }
    // The content after so many more rollbacks.
    static std::vector<std::pair<Item, Item>> contentOf(MemoryStore& store) {
        std::vector<std::pair<Item, Item>> content;
        Item key;
        for (bool more = store.first(key); more; more = store.next(key, key)) {
            const Item* value = store.get(key);
            EXPECT_EQ(key.getStore(), &store);
            EXPECT_EQ(value->getStore(), &store);
            content.emplace_back(key, *value);
        }
        return content;
    }
    static void expectSame(MemoryStore& a, MemoryStore& b) {
        ASSERT_EQ(a.getNumberOfLayers(), b.getNumberOfLayers());
        for (;;) {
            const auto x = contentOf(a), y = contentOf(b);
            ASSERT_EQ(x.size(), y.size());
            for (size_t i = 0; i < x.size(); ++i) {
                ASSERT_TRUE(support::isSame(x[i].first, y[i].first));
                ASSERT_TRUE(support::isSame(x[i].second, y[i].second));
            }
            if (a.getNumberOfLayers() == 1) return;
            a.rollback();
            b.rollback();
        }
    }
    static void expectFresh(MemoryStore& store) {
        Item key;
        EXPECT_FALSE(store.first(key));
        EXPECT_FALSE(store.next(Item(), key));
        EXPECT_EQ(store.get(Item("key")), nullptr);
        EXPECT_EQ(store.getNumberOfLayers(), 1u);
        EXPECT_TRUE(store.isTransactional());
        store.begin();
        store.set("key", "value");
        EXPECT_NE(store.get("key"), nullptr);
        store.rollback();
        EXPECT_FALSE(store.first(key));
    }

    MemoryStore m_store{true};
    StoreModel m_model{m_store, true};
};

TEST_F(MemoryStoreCopy, CopiesAreIndependentAndKeepTransactions) {
    auto copy = std::make_unique<MemoryStore>(m_store);
    MemoryStore assigned(false);
    assigned.set("old", "gone");
    assigned = m_store;
    EXPECT_TRUE(assigned.isTransactional());
    const MemoryStore& self = assigned;
    assigned = self;
    copy->remove(Item(), support::plain("\xFF"));
    copy->rollback();
    copy.reset();
    m_model.compare();
    expectSame(m_store, assigned);
}

TEST_F(MemoryStoreCopy, MovesTakeEverythingAndLeaveAFreshStore) {
    MemoryStore expected(m_store);
    MemoryStore moved(std::move(m_store));
    expectFresh(m_store);
    MemoryStore assigned(false);
    assigned.set("old", "gone");
    assigned.begin();
    assigned = std::move(moved);
    expectFresh(moved);
    EXPECT_TRUE(assigned.isTransactional());
    expectSame(assigned, expected);
    MemoryStore plain(false);
    const MemoryStore taken(std::move(plain));
    EXPECT_FALSE(taken.isTransactional());
    EXPECT_FALSE(plain.isTransactional());
}

} // namespace
