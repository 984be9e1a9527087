// Hunts, in every kind of store: keys and values lost, doubled, out of order or torn, range ends off by one, rollbacks
// that restore less or more than they should, arguments that lie in the store itself, and what was handed out dying too
// early; memory that ends in the midst of a change and leaves half of it, loses what a rollback needs, or leaks.
// KIV_TEST_SEED repeats a failed run.
#include "kiv/core/SmartPointer.h"
#include "kiv/store/CacheStore.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/RandomKeys.h"
#include "tests/store/StoreModel.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/SystemFaults.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using namespace kiv;
using support::plain;
using support::RandomKeys;
using support::StoreModel;

struct Kind {
    const char* name;
    bool transactional;
    SmartPointer<Store> (*make)();
    friend void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }
};

const Kind kinds[] = {
    {"Memory", true, [] { return SmartPointer<Store>(new MemoryStore(true)); }},
    {"MemoryWithoutTransactions", false, [] { return SmartPointer<Store>(new MemoryStore(false)); }},
    {"Cache", true, [] { return SmartPointer<Store>(new CacheStore(new MemoryStore(true))); }},
    {"CacheWithoutTransactions", false, [] { return SmartPointer<Store>(new CacheStore(new MemoryStore(false))); }},
};

constexpr size_t operationsOfAll = 1000000, largeContent = 200000;

uint64_t seedOfRun() {
    const char* text = std::getenv("KIV_TEST_SEED");
    return text ? std::strtoull(text, nullptr, 10) : 20261130;
}

// How one round goes: many keys make large stores, few make dense ones, which transactions are tested best with.
struct Mix {
    size_t keys;
    size_t operations;
    size_t perTransaction; // operations between begin, commit and rollback
    size_t perWideRange;   // and between removals of any range
};

constexpr Mix mixes[] = {{40, 4000, 10, 100}, {700, 10000, 60, 700}, {9000, 26000, 1500, 12000}};

// Random operations on a store and its model.
class RandomWork {
public:
    RandomWork(StoreModel& model, uint64_t seed, const Mix& mix)
        : m_model(model), m_keys(seed, mix.keys), m_random(m_keys.random), m_mix(mix) {}

    void operation() {
        m_model.checkKept();
        if (m_random.oneIn(m_mix.perTransaction)) return transaction();
        if (m_random.oneIn(m_mix.perWideRange)) return removeAnything();
        const size_t choice = m_random.below(1000);
        if (choice < 380) return m_model.set(m_keys.key(), m_keys.value());
        if (choice < 560) return static_cast<void>(m_model.get(m_keys.key()));
        if (choice < 630) return m_model.next(m_keys.key());
        if (choice < 700) return m_model.prev(m_keys.key());
        if (choice < 740) return m_model.nextInPlace(m_keys.key());
        if (choice < 780) return m_model.prevInPlace(m_keys.key());
        if (choice < 790) return m_model.first();
        if (choice < 820) return holdSeveral();
        if (choice < 890) return removeOne();
        if (choice < 902) return removeSubtree();
        if (choice < 914) return removeNeighbours();
        if (choice < 917) return append();
        if (choice == 917) return m_model.relocate(m_random.oneIn(2));
        aliased();
    }

private:
    void transaction() {
        const size_t choice = m_random.below(20);
        if (choice == 0 || (choice < 10 && m_model.depth() < 6)) return m_model.begin();
        // Also without begin().
        if (choice < 15) return m_model.commit();
        m_model.rollback();
    }

    void removeOne() {
        const Item key = m_keys.key();
        m_model.remove(key, key);
    }
    void removeSubtree() {
        const Item key = m_keys.key();
        if (!key.empty()) m_model.remove(key, support::joined(key, plain("\xFF"))); // else all there is
    }
    void removeNeighbours() {
        const auto& content = m_model.content();
        const Item from = m_keys.key();
        auto last = content.lower_bound(from);
        for (size_t i = m_random.below(30); i > 0 && last != content.end(); --i) ++last;
        const Item to = last == content.end() ? from : last->first;
        m_model.remove(from, to);
    }
    void removeAnything() {
        const Item from = m_keys.key(), to = m_keys.key();
        const Item *a = m_model.get(from), *b = m_model.get(to);
        a&& b ? m_model.remove(*a, *b) : m_model.remove(from, to);
    }
    void append() {
        m_keys.startSequence();
        for (size_t i = 20 + m_random.below(100); i > 0; --i) m_model.set(m_keys.nextOfSequence(), m_keys.value());
    }

    // All that get() returned is good until the next change.
    void holdSeveral() {
        std::vector<std::pair<Item, const Item*>> held;
        for (int i = 0; i < 6; ++i) {
            const Item key = m_keys.key();
            held.emplace_back(key, m_model.get(key));
            m_model.next(key);
        }
        m_model.first();
        for (const auto& [key, value] : held) {
            if (value) m_model.checkValue(key, *value, m_model.content().find(key)->second);
        }
    }

    // Arguments that are the store's own values.
    void aliased() {
        const Item* a = m_model.get(m_keys.key());
        const Item* b = m_model.get(m_keys.key());
        if (!a || !b) return;
        const size_t kind = m_random.below(8);
        if (kind == 0) return m_model.set(m_keys.key(), *a);
        if (kind == 1) return m_model.set(*a, *b);
        if (kind == 2) return m_model.set(*a, *a);
        if (kind == 3) return StoreModel::Order()(*a, *b) ? m_model.remove(*b, *a) : m_model.remove(*a, *a);
        if (kind == 4) return m_model.next(*a);
        if (kind == 5) return m_model.prev(*a);
        if (kind == 6) return static_cast<void>(m_model.get(*a));
        // To itself, by a view that the store must not read from while it moves the bytes.
        const Item key = m_keys.key();
        const Item* value = m_model.get(key);
        if (!value) return;
        m_model.set(key, Item(Item::ExternalBufferMode(), {value->getPlainBytePointer(), value->getPlainSize() / 2}));
    }

    StoreModel& m_model;
    RandomKeys m_keys;
    support::Random& m_random;
    const Mix m_mix;
};

class StoreSuite : public testing::TestWithParam<Kind> {
protected:
    const SmartPointer<Store> m_store = GetParam().make();
    StoreModel m_model{*m_store, GetParam().transactional};
};

TEST_P(StoreSuite, DoesWhatAMapDoes) {
    const uint64_t seed = seedOfRun();
    size_t done = 0;
    for (uint64_t round = 0; done < operationsOfAll / std::size(kinds); ++round) {
        const SmartPointer<Store> store = GetParam().make();
        StoreModel model(*store, GetParam().transactional);
        const Mix& mix = mixes[round % std::size(mixes)];
        RandomWork work(model, seed + round * 1000003, mix);
        for (size_t i = 0; i < mix.operations; ++i, ++done) {
            work.operation();
            ASSERT_FALSE(HasFailure()) << "KIV_TEST_SEED=" << seed << ", round " << round << ", operation " << i;
        }
        while (model.depth() > 0) round % 2 == 0 ? model.rollback() : model.commit();
        model.compare();
        EXPECT_EQ(model.console.take(), "");
        ASSERT_FALSE(HasFailure()) << "KIV_TEST_SEED=" << seed << ", end of round " << round;
    }
}

TEST_P(StoreSuite, HoldsManyEntries) {
    RandomKeys keys(seedOfRun(), 1000);
    auto numbered = [](const char* name, size_t i) { return support::list("study", name, i); };
    auto fill = [&](const char* name, auto index) {
        for (size_t i = 0; i < largeContent / 4; ++i) m_model.set(numbered(name, index(i)), keys.value());
    };
    fill("ascending", [](size_t i) { return i; });
    fill("descending", [](size_t i) { return largeContent - i; });
    m_model.compare();
    m_model.begin();
    fill("random", [&](size_t) { return keys.random.below(largeContent); });
    fill("ascending", [](size_t i) { return 3 * i; });
    m_model.begin();
    for (int i = 0; i < 200; ++i) {
        const size_t from = keys.random.below(largeContent);
        const char* const name = i % 2 ? "ascending" : "random";
        m_model.remove(numbered(name, from), numbered(name, from + keys.random.below(largeContent / 300)));
    }
    m_model.commit();
    m_model.compare();
    ASSERT_FALSE(HasFailure()) << "KIV_TEST_SEED=" << seedOfRun();
    if (GetParam().transactional) m_model.rollback();
    m_model.remove(numbered("ascending", 0), numbered("descending", largeContent - 100));
    m_model.compare();
    ASSERT_FALSE(HasFailure()) << "KIV_TEST_SEED=" << seedOfRun();
    m_model.remove(Item(), plain("\xFF"));
    EXPECT_TRUE(m_model.content().empty());
    m_model.compare();
}

// What tells such keys apart is as long as they are, so that pages above the leaves hold little of it.
TEST_P(StoreSuite, HoldsLongKeysThatDifferAtTheirEnds) {
    RandomKeys keys(seedOfRun(), 1);
    const std::string letters(1100, 'x');
    const Item zeros(std::vector<uint8_t>(500).data(), 500);
    auto key = [&](size_t i) { return support::joined(i % 8 == 0 ? Item(letters.c_str()) : zeros, support::list(i)); };
    constexpr size_t count = 6000;
    for (size_t i = 0; i < count; ++i) m_model.set(key(keys.random.below(count)), keys.value());
    for (size_t i = 0; i < count; ++i) m_model.set(key(i), keys.value());
    m_model.compare();
    m_model.begin();
    for (int i = 0; i < 400; ++i) {
        const size_t from = keys.random.below(count);
        m_model.remove(key(from), key(from + 8 * keys.random.below(12)));
    }
    m_model.compare();
    if (GetParam().transactional) m_model.rollback();
    for (int i = 0; i < 4000; ++i) {
        const Item one = key(keys.random.below(count));
        m_model.remove(one, one);
    }
    m_model.compare();
    ASSERT_FALSE(HasFailure()) << "KIV_TEST_SEED=" << seedOfRun();
}

TEST_P(StoreSuite, CopiesAllOrAllButExclusions) {
    for (uint64_t round = 0; round < 60; ++round) {
        RandomKeys keys(seedOfRun() + round * 977, 300);
        const SmartPointer<Store> other = GetParam().make();
        StoreModel source(*other, GetParam().transactional);
        for (size_t i = keys.random.below(400); i > 0; --i) source.set(keys.key(), keys.value());
        for (size_t i = keys.random.below(50); i > 0; --i) m_model.set(keys.key(), keys.value());
        kiv::Set<Item> exclude;
        for (size_t i = keys.random.below(12); i > 0; --i) {
            Item key = keys.key();
            if (!key.empty() || round % 20 == 0) exclude.insert(key);
        }
        m_model.begin();
        m_model.copyFrom(source, round % 4 == 0 ? nullptr : &exclude);
        GetParam().transactional&& round % 3 == 0 ? m_model.rollback() : m_model.commit();
        source.compare();
        ASSERT_FALSE(HasFailure()) << "KIV_TEST_SEED=" << seedOfRun() << ", round " << round;
        if (round % 7 == 0) m_model.remove(Item(), plain("\xFF"));
    }
}

TEST_P(StoreSuite, BindsWhatItHandsOut) {
    const SmartPointer<Store> other(new MemoryStore(false));
    Item value("value"), key("key");
    value.setStore(other.get()), key.setStore(other.get());
    m_model.set(key, value), m_model.set("before", 1);
    m_model.get("key"), m_model.prev(key), m_model.first();
    EXPECT_TRUE(m_store->good() && m_store->getSizeInBytes() == 0);
}

// Tries each change with memory that ends ever later, until it succeeds. One that fails must leave all as it was, but
// of a removal, of whose range the beginning may be gone, and of a rollback, which can be done again.
class ShortOfMemory : public MemoryStore {
public:
    using Content = StoreModel::Content;

    ShortOfMemory() : MemoryStore(true) {}

    static Content contentOf(MemoryStore& store) {
        Content content;
        Item key;
        for (bool more = store.first(key); more; more = store.next(key, key)) content[key] = *store.get(key);
        EXPECT_EQ(content.size(), store.lastData().getCount());
        return content;
    }

    void set(const Item& key, const Item& value) override {
        const Item ownKey = key, ownValue = value; // they may be the store's, which takes them back as it fails
        change([&] { MemoryStore::set(ownKey, ownValue); });
    }
    void remove(const Item& from, const Item& to) override {
        const Item ownFrom = from, ownTo = to;
        change([&] { MemoryStore::remove(ownFrom, ownTo); }, &ownFrom, &ownTo);
    }
    void begin() override {
        change([&] { const MemoryStore copy(*this); });
        change([&] { MemoryStore::begin(); });
    }
    void commit() override {
        if (getNumberOfLayers() == 1) return MemoryStore::commit(); // which is told
        change([&] { MemoryStore::commit(); });
    }
    void rollback() override {
        const size_t layers = getNumberOfLayers();
        if (layers == 1) return MemoryStore::rollback();
        const auto tryIt = [&] { MemoryStore::rollback(); };
        for (size_t successes = 0; !succeeds(tryIt, successes); ++successes) EXPECT_EQ(getNumberOfLayers(), layers);
    }

    size_t faults = 0, tornRemovals = 0;

private:
    template <class Try>
    bool succeeds(Try tryIt, size_t successes) {
        const support::AllocationFault fault(successes, m_random.oneIn(2) ? 1 : support::AllocationFault::forever);
        try {
            tryIt();
            return true;
        } catch (const std::bad_alloc&) {
            ++faults;
            return false;
        }
    }
    template <class Try>
    void change(Try tryIt, const Item* from = nullptr, const Item* to = nullptr) {
        Content content = contentOf(*this);
        const size_t layers = getNumberOfLayers();
        const auto isSame = [](const auto& a, const auto& b) {
            return support::isSame(a.first, b.first) && support::isSame(a.second, b.second);
        };
        for (size_t successes = 0; !succeeds(tryIt, successes); ++successes) {
            const Content left = contentOf(*this);
            for (size_t gone = content.size() - left.size(); from && gone > 0; --gone, ++tornRemovals) {
                const auto first = content.lower_bound(*from);
                if (first == content.end() || StoreModel::Order()(*to, first->first)) break;
                content.erase(first);
            }
            EXPECT_TRUE(std::equal(left.begin(), left.end(), content.begin(), content.end(), isSame));
            EXPECT_EQ(getNumberOfLayers(), layers);
            if (testing::Test::HasFailure()) return;
        }
    }

    support::Random m_random{1};
};

TEST(MemoryStoreFaults, ChangesHappenOrDont) {
    size_t faults = 0, tornRemovals = 0;
    for (uint64_t seed = 1; seed <= 4; ++seed) {
        ShortOfMemory store;
        StoreModel model(store, true);
        RandomWork work(model, seed, {400, 1000, 15, 200});
        for (int i = 0; i < 1000; ++i) {
            work.operation();
            ASSERT_FALSE(HasFailure()) << "seed " << seed << ", operation " << i;
        }
        faults += store.faults;
        tornRemovals += store.tornRemovals;
    }
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library's allocations can't fail here";
    EXPECT_TRUE(faults > 2000 && tornRemovals > 0) << faults << " " << tornRemovals;
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
    const StoreModel::Content content = ShortOfMemory::contentOf(store);
    ASSERT_EQ(content.size(), static_cast<size_t>(stored));
    EXPECT_TRUE(support::isSame(content.rbegin()->first, support::list("before", stored - 1)));
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreSuite, testing::ValuesIn(kinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

} // namespace
