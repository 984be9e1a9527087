// Hunts: memory that ends in the midst of a change and leaves half of it, loses what a rollback needs, or leaks;
// cursors and views into pages that were given up.
#include "kiv/store/MemoryStore.h"
#include "tests/data/RandomKeys.h"
#include "tests/store/StoreModel.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/SystemFaults.h"

#include <gtest/gtest.h>

namespace {

using namespace kiv;
using support::AllocationFault;
using Order = support::StoreModel::Order;
using Content = support::StoreModel::Content;

Content contentOf(MemoryStore& store) {
    Content content;
    Item key;
    for (bool more = store.first(key); more; more = store.next(key, key)) {
        EXPECT_TRUE(content.empty() || Order()(content.rbegin()->first, key)) << "out of order";
        const Item* value = store.get(key);
        EXPECT_NE(value, nullptr);
        content.emplace_hint(content.end(), key, value ? *value : Item());
    }
    EXPECT_EQ(content.size(), store.lastData().getCount());
    return content;
}

bool isSame(const Content& a, const Content& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
        return support::isSame(x.first, y.first) && support::isSame(x.second, y.second);
    });
}

// Every change is tried with memory that ends ever later, until it succeeds.
class FaultyWork {
public:
    explicit FaultyWork(uint64_t seed) : m_keys(seed, 400), m_random(m_keys.random) {}

    size_t faults() const { return m_faults; }
    size_t tornRemovals() const { return m_tornRemovals; }

    void operation() {
        const size_t choice = m_random.below(100);
        if (choice < 8 && m_snapshots.size() < 4) return begin();
        if (choice < 12) return end(&MemoryStore::commit);
        if (choice < 15) return end(&MemoryStore::rollback);
        if (choice < 25) return remove(key(), key());
        if (choice < 45) return removeOne();
        if (choice < 47) return copy();
        set(key(), m_keys.value());
    }

private:
    // Some are long and differ late, or nest deeply: their pages and comparisons want memory, too.
    Item key() {
        const Item some = m_keys.key();
        if (m_random.oneIn(3)) {
            Item deep(static_cast<int>(m_random.below(4)));
            if (m_random.oneIn(2)) deep = m_keys.disguised(deep);
            for (int i = 0; i < 20; ++i) deep = support::list(deep);
            return deep;
        }
        return m_random.oneIn(2) ? support::list(std::string(600, 'x').c_str(), m_random.below(200)) : some;
    }

    // `failed` looks at the store after a try that failed. False when the change is given up after one.
    template <class Change, class Failed>
    bool change(Change tryIt, Failed failed) {
        const bool givesUp = m_random.oneIn(4);
        for (size_t successes = givesUp ? m_random.below(4) : 0;; ++successes) {
            bool isDone = false, happened = false;
            {
                const AllocationFault fault(successes, m_random.oneIn(2) ? 1 : AllocationFault::forever);
                try {
                    tryIt();
                    isDone = true;
                } catch (const std::bad_alloc&) {
                }
                happened = fault.happened();
            }
            m_faults += happened;
            if (isDone) return true;
            EXPECT_TRUE(happened);
            failed();
            if (givesUp || testing::Test::HasFailure()) return false;
        }
    }
    void expectContent(const char* when) { EXPECT_TRUE(isSame(contentOf(*m_store), m_content)) << when; }
    void expectLayers() { EXPECT_EQ(m_store->getNumberOfLayers(), m_snapshots.size() + 1); }

    void set(const Item& key, const Item& value) {
        if (change([&] { m_store->set(key, value); }, [&] { expectContent("set() failed"); })) {
            m_content[key] = value;
            if (m_random.oneIn(10)) expectContent("set() succeeded");
        }
    }
    void removeOne() {
        if (m_content.empty()) return;
        auto from = m_content.lower_bound(key());
        if (from == m_content.end()) --from;
        auto to = from;
        for (size_t i = m_random.below(8); i > 0 && std::next(to) != m_content.end(); --i) ++to;
        remove(Item(from->first), Item(to->first));
    }
    // One that fails may have removed the beginning of the range.
    void remove(const Item& from, const Item& to) {
        const bool isRange = !Order()(to, from);
        const auto done = [&] {
            if (isRange) m_content.erase(m_content.lower_bound(from), m_content.upper_bound(to));
        };
        const auto failed = [&] {
            const Content left = contentOf(*m_store);
            auto end = isRange ? m_content.lower_bound(from) : m_content.end();
            for (size_t i = m_content.size(); i > left.size() && end != m_content.end(); --i) {
                end = Order()(to, end->first) ? m_content.end() : m_content.erase(end);
                ++m_tornRemovals;
            }
            EXPECT_TRUE(isSame(left, m_content)) << "remove() failed";
        };
        if (change([&] { m_store->remove(from, to); }, failed)) done();
        if (m_random.oneIn(4)) expectContent("remove() succeeded");
    }
    void begin() {
        if (change([&] { m_store->begin(); }, [&] { expectLayers(); })) m_snapshots.push_back(m_content);
        expectLayers();
    }
    // A rollback that failed can be done again, or nothing is known of the content.
    void end(void (MemoryStore::*how)()) {
        if (m_snapshots.empty()) return;
        const bool isCommit = how == &MemoryStore::commit;
        const auto failed = [&] {
            expectLayers();
            if (isCommit) expectContent("commit() failed");
        };
        if (!change([&] { (*m_store.*how)(); }, failed)) {
            if (isCommit) return;
            m_store->rollback();
        }
        if (!isCommit) m_content = m_snapshots.back();
        m_snapshots.pop_back();
        expectLayers();
        expectContent(isCommit ? "commit() succeeded" : "rollback() succeeded");
    }
    // Copies are like their originals, transactions included, and those that fail leave nothing behind.
    void copy() {
        std::unique_ptr<MemoryStore> copied;
        if (!change([&] { copied = std::make_unique<MemoryStore>(*m_store); }, [] {})) return;
        std::swap(m_store, copied);
        expectContent("copied");
    }

    std::unique_ptr<MemoryStore> m_store = std::make_unique<MemoryStore>(true);
    support::RandomKeys m_keys;
    support::Random& m_random;
    Content m_content;
    std::vector<Content> m_snapshots;
    size_t m_faults = 0, m_tornRemovals = 0;
};

TEST(MemoryStoreFaults, ChangesHappenOrDont) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library's allocations can't fail here";
    size_t faults = 0, tornRemovals = 0;
    for (uint64_t seed = 1; seed <= 6; ++seed) {
        FaultyWork work(seed);
        for (int i = 0; i < 500; ++i) {
            work.operation();
            ASSERT_FALSE(HasFailure()) << "seed " << seed << ", operation " << i;
        }
        faults += work.faults();
        tornRemovals += work.tornRemovals();
    }
    EXPECT_GT(faults, 2000u);
    EXPECT_GT(tornRemovals, 0u);
}

// Chunks of pages come from the system itself.
TEST(MemoryStoreFaults, TheSystemHasNoMoreMemory) {
    constexpr int64_t stored = 50000;
    MemoryStore store(true);
    const auto fill = [&](const char* name, int64_t count) {
        int64_t i = 0;
        try {
            for (; i < count; ++i) store.set(support::list(name, i), "value");
        } catch (const std::bad_alloc&) {
        }
        return i;
    };
    ASSERT_EQ(fill("before", stored), stored);
    store.begin();
    int64_t added = 0;
    bool isInForce = false;
    {
        const support::MemoryLimit limit;
        isInForce = limit.isInForce();
        if (isInForce) added = fill("more", 10 * stored);
    }
    if (!isInForce) GTEST_SKIP() << "memory has no limit here";
    EXPECT_LT(added, 10 * stored) << "memory did not end";
    EXPECT_EQ(store.lastData().getCount(), static_cast<uint64_t>(stored + added));
    EXPECT_EQ(fill("more", 2 * added + 1000), 2 * added + 1000) << "it goes on when there is memory again";
    store.rollback();
    const Content content = contentOf(store);
    ASSERT_EQ(content.size(), static_cast<size_t>(stored));
    EXPECT_TRUE(support::isSame(content.rbegin()->first, support::list("before", stored - 1)));
}

} // namespace
