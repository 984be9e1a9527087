// Hunts: entries that outlive their truth, an order of recency that is not one, keys that are equal but not found,
// values overwritten while they are read, costs that grow.
#include "kiv/store/CacheStore.h"

#include "kiv/store/CanonicalKey.h"
#include "kiv/store/MemoryStore.h"
#include "kiv/store/RecencyCache.h"
#include "tests/data/Items.h"
#include "tests/data/RandomKeys.h"
#include "tests/support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <list>
#include <map>
#include <set>

namespace {

using namespace kiv;
using kiv::internal::RecencyCache;
using support::list;
using support::plain;

constexpr int capacity = 8192;

// Counts what reaches it, and fails when told to.
class Backing : public MemoryStore {
public:
    explicit Backing(bool transactional = true) : MemoryStore(transactional) {}

    const Item* get(const Item& key) override {
        ++gets;
        if (fails) throw std::bad_alloc();
        return MemoryStore::get(key);
    }
    void set(const Item& key, const Item& value) override {
        if (fails) throw std::bad_alloc();
        MemoryStore::set(key, value);
    }

    unsigned gets = 0;
    bool fails = false;
};

struct CacheStoreTest : testing::Test {
    SmartPointer<Backing> backing{new Backing};
    SmartPointer<CacheStore> cache{new CacheStore(backing.get())};

    // What the cache says, as text; "-" for nothing.
    std::string at(const Item& key) { return text(cache->get(key)); }
    static std::string text(const Item* value) { return value ? value->asString().to_std_string() : "-"; }
    static std::string text(const Item& value) { return text(&value); }
    void fill(int count) {
        for (int i = 0; i < count; ++i) cache->set(Item(i), list(i, "value"));
    }
    bool hits(const Item& key) {
        const uint32_t before = cache->getHitCount();
        cache->get(key);
        return cache->getHitCount() != before;
    }
};

std::string bytesOf(char type, const void* payload, size_t size) {
    return std::string(1, type) + std::string(static_cast<const char*>(payload), size);
}

// An integer in a code that need not be the shortest one for it.
std::string spelled(int64_t value, int form) {
    static const char types[] = {8, 7, 6, 1};
    return bytesOf(types[form], &value, size_t{1} << form);
}

TEST_F(CacheStoreTest, TransactionsOfItsKeysGoThroughIt) {
    backing->MemoryStore::set(Item("a"), Item(2));
    Item key;
    ASSERT_TRUE(cache->first(key));
    key.begin();
    key.store(Item(3));
    key.rollback();
    EXPECT_EQ(at(Item("a")), text(Item(2)));
}

TEST_F(CacheStoreTest, WithoutABackingStoreDoesNothing) {
    CacheStore none(nullptr);
    Item out("out");
    none.set(Item(1), Item(1)), none.remove(Item(), Item("z"));
    none.begin(), none.commit(), none.rollback(), none.close(), none.flush(), none.invalidate();
    EXPECT_EQ(none.get(Item(1)), nullptr);
    EXPECT_FALSE(none.first(out) || none.next(Item(), out) || none.prev(Item("z"), out));
    EXPECT_TRUE(none.getSizeInBytes() + none.getHitCount() + none.getMissCount() == 0 && !CacheStore(none).good());
}

TEST_F(CacheStoreTest, CopiesAndMovesHandOutTheirOwnValues) {
    cache->set(Item(1), Item("one"));
    cache->get(Item(2));
    const auto isOwn = [](CacheStore& of) { return of.get(Item(1))->getStore() == &of && !of.get(Item(2)); };
    CacheStore copy(*cache);
    EXPECT_TRUE(isOwn(copy) && isOwn(*cache) && copy.getHitCount() == 2 && copy.getMissCount() == 1);
    CacheStore moved(std::move(copy));
    EXPECT_FALSE(copy.good() || copy.get(Item(1)));
    EXPECT_TRUE(isOwn(moved) && moved.getMissCount() == 1);
    copy = std::move(moved);
    EXPECT_TRUE(isOwn(copy) && copy.getBackingStore() == backing.get());

    fill(capacity);
    hits(Item(0)); // the order of recency is copied, too
    *cache = CacheStore(*cache);
    cache->set(Item(-1), Item());
    EXPECT_TRUE(hits(Item(0)) && !hits(Item(1)));
}

// A key or value may be what get() returned, although its entry is the one that gives way, or a view of its bytes.
TEST_F(CacheStoreTest, SurvivesArgumentsFromItsOwnEntries) {
    const Item longValue = list(std::string(100, 'x'), list(5, std::string(60, 'y')));
    const auto expectBoth = [this](const Item& key, const Item& value) {
        EXPECT_EQ(text(backing->get(key)), text(value));
        EXPECT_EQ(at(key), text(value));
    };
    const auto oldest = [&](const Item& value) {
        cache->invalidate();
        cache->set(Item(0), value);
        const Item* kept = cache->get(Item(0));
        for (int i = 1; i < capacity; ++i) cache->get(Item(i));
        return kept;
    };
    for (const Item& value : {list("short"), longValue}) {
        cache->set(Item("new"), *oldest(value)), expectBoth(Item("new"), value);
        cache->set(*oldest(value), list("under the value")), expectBoth(value, list("under the value"));
        EXPECT_EQ(text(cache->get(*oldest(value))), text(list("under the value"))); // asked of the backing store
        EXPECT_TRUE(hits(value));
        cache->set(value, value);
        cache->set(*cache->get(value), Item(7)), expectBoth(value, Item(7)); // a key that is its own value
    }
    cache->set(Item(0), longValue);
    Item::Iterator it = cache->get(Item(0))->getIterator();
    Item view;
    ASSERT_TRUE(it.skip() && it.asWeakSubItem(view));
    cache->set(Item(0), view);
    expectBoth(Item(0), list(5, std::string(60, 'y')));
}

TEST_F(CacheStoreTest, AFailureOfTheBackingStoreLeavesNoHalfEntry) {
    cache->set(Item(1), Item("old"));
    backing->MemoryStore::set(Item(2), Item("two"));
    backing->fails = true;
    EXPECT_THROW(cache->set(Item(1), Item("new")), std::bad_alloc);
    EXPECT_THROW(cache->set(Item(3), Item("new")), std::bad_alloc);
    EXPECT_THROW(cache->get(Item(2)), std::bad_alloc);
    backing->fails = false;
    EXPECT_EQ(at(Item(1)), text(Item("old")));
    EXPECT_EQ(at(Item(2)), text(Item("two")));
    EXPECT_EQ(at(Item(3)), "-");
}

// A hit on the second key says that the cache takes them for the same.
TEST_F(CacheStoreTest, FindsExactlyTheKeysThatAreEqual) {
    support::RandomKeys keys(31, 60);
    int equal = 0, different = 0;
    const auto check = [&](const Item& a, const Item& b) {
        const bool same = Item::compareTotal(a, b) == 0;
        cache->invalidate();
        cache->get(a);
        ASSERT_EQ(hits(b), same) << a.getBase16() << " " << b.getBase16();
        if (a.getBase16() != b.getBase16()) ++(same ? equal : different);
    };
    for (int round = 0; round < 20000 && !HasFatalFailure(); ++round) {
        const Item key = keys.key();
        check(key, keys.random.oneIn(2) ? keys.disguised(key) : keys.key());
    }
    EXPECT_GT(equal, 1000);
    EXPECT_GT(different, 1000);
    for (const char code : {'\4', '\5', '\xC1'}) // bytes that look like elements, in a buffer, a pointer, a referee
        check(plain(bytesOf(code, "\3\0\0\0\7\5", 7)), plain(bytesOf(code, "\2\0\0\0\b\5", 6)));
    check(Item(std::numeric_limits<double>::signaling_NaN()), Item(NAN));
}

TEST_F(CacheStoreTest, KeysMayNestDeeperThanAStackHolds) {
    const auto deep = [](const std::string& inner) {
        std::string bytes;
        for (auto size = static_cast<uint32_t>(inner.size()) + 5 * 200000; size > inner.size();) {
            size -= 5;
            bytes += bytesOf(9, &size, 4);
        }
        return plain(bytes + inner);
    };
    cache->get(deep(spelled(5, 3)));
    EXPECT_TRUE(hits(deep(spelled(5, 0))) && !hits(deep(spelled(6, 0))));
}

// The cache beside its definition: a list of keys by recency, and a map of what is stored.
class Model {
public:
    bool use(const Item& key) { // whether it was known
        const auto found = m_places.find(key);
        const bool known = found != m_places.end();
        if (known) m_recency.erase(found->second);
        if (!known && m_recency.size() == capacity) {
            m_places.erase(m_recency.back());
            m_recency.pop_back();
        }
        m_recency.push_front(key);
        m_places[key] = m_recency.begin();
        return known;
    }
    void clear() {
        m_recency.clear();
        m_places.clear();
    }

private:
    std::list<Item> m_recency;
    std::map<Item, std::list<Item>::iterator, std::less<Item>> m_places;
};

TEST_F(CacheStoreTest, FollowsTheModelOfAListByRecency) {
    support::Random random(20261121);
    const auto below = [&](unsigned end) { return static_cast<unsigned>(random.below(end)); };
    Model model;
    int depth = 0;
    uint32_t hitCount = 0, missCount = 0;
    for (int step = 0; step < 120000; ++step) {
        // Half of the keys are drawn from few.
        const int64_t number = below(2) == 0 ? below(500) : below(14000);
        const int form = static_cast<int>(number < 128 ? below(4) : 2 + below(2));
        const Item key = plain(spelled(number, form));
        const unsigned what = below(100000); // seldom anything that empties the cache, so that it fills up
        if (what < 15000) {
            cache->set(key, below(8) == 0 ? Item(std::string(100, 'v').c_str()) : Item(step));
            model.use(key);
        } else if (what < 15003) {
            cache->remove(key, Item(number + 20));
            model.clear();
        } else if (what < 15010) {
            cache->begin();
            ++depth;
        } else if (what < 15017 && depth > 0) {
            --depth;
            if (below(2) == 0) {
                cache->commit();
            } else {
                cache->rollback();
                model.clear();
            }
        } else {
            ++(model.use(key) ? hitCount : missCount);
            cache->get(key);
        }
        ASSERT_TRUE(cache->getHitCount() == hitCount && cache->getMissCount() == missCount) << "step " << step;
    }
    EXPECT_EQ(backing->gets, missCount);
    EXPECT_GT(missCount, 20000u);
}

// Has one value for everything and allocates nothing.
class Constant : public Backing {
public:
    const Item* get(const Item& key) override { return key.getPlainSize() % 2 == 0 ? &m_value : nullptr; }
    void set(const Item&, const Item&) override {}
    void remove(const Item&, const Item&) override {}

private:
    Item m_value = Item(std::string(100, 'c').c_str());
};

TEST(CacheStoreCosts, SteadyStateAllocatesNothing) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "operator new of the library is not counted here";
    const SmartPointer<CacheStore> cache(new CacheStore(new Constant));
    std::vector<Item> keys; // of 26 bytes, and of 47
    for (int i = 0; i < 3 * capacity; ++i) {
        keys.push_back(list("series-012", 0x123456789ALL * (i + 1), 1000000 + i));
        if (i % 2 == 1) keys.back().add("twenty more bytes..");
    }
    const Item longValue(std::string(100, 'v').c_str());
    const auto round = [&] {
        for (const Item& key : keys) cache->get(key);
        for (size_t i = 0; i < keys.size(); i += 3) cache->set(keys[i], longValue);
    };
    // Entries keep their memory: once all have had long keys and values, any may become any other.
    for (size_t i = 1; i < keys.size(); i += 2) cache->set(keys[i], longValue);
    EXPECT_EQ(support::allocationsOf([&] { round(), cache->remove(Item(), Item()), round(); }), 0u);
    const Item nestedKey = list(list(1, list("inner")), 5), other = plain(spelled(5, 3));
    cache->get(nestedKey), cache->get(other);
    const uint32_t hitsBefore = cache->getHitCount();
    const auto getBoth = [&] {
        for (int i = 0; i < 100; ++i) cache->get(nestedKey), cache->get(other);
    };
    EXPECT_EQ(support::allocationsOf(getBoth), 0u);
    EXPECT_EQ(cache->getHitCount() - hitsBefore, 200u);
}

TEST(CacheStoreCosts, ClearingWritesTheSameFewWordsHoweverMuchThereIs) {
    const auto cache = std::make_unique<RecencyCache>();
    const auto changed = [&] { // in 8-byte words of the whole object
        const auto* const words = reinterpret_cast<const unsigned char*>(cache.get());
        const std::vector<unsigned char> before(words, words + sizeof(RecencyCache));
        cache->clear();
        size_t count = 0;
        for (size_t i = 0; i < before.size(); i += 8) count += std::memcmp(&before[i], words + i, 8) != 0;
        return count;
    };
    for (uint32_t i = 0; i < capacity; ++i) {
        const Item key(i);
        cache->add(key.getConstByteSpan(), i * 2654435761u, &key, nullptr);
    }
    EXPECT_EQ(cache->size(), unsigned{capacity});
    EXPECT_LE(changed(), 6u);
    EXPECT_EQ(cache->size(), 0u);
}

// Slots tell their age by 16 bits.
TEST(CacheStoreCosts, NothingComesBackAfterManyClears) {
    const auto cache = std::make_unique<RecencyCache>();
    const Item key("key"), other("other");
    cache->add(key.getConstByteSpan(), 1, &key, nullptr);
    cache->add(other.getConstByteSpan(), 77, &other, nullptr); // whose node is the one that is used again
    for (int i = 0; i < 70000; ++i) {
        cache->clear();
        ASSERT_EQ(cache->find(key.getConstByteSpan(), 1), nullptr) << i;
        cache->add(other.getConstByteSpan(), 77, &other, nullptr);
    }
}

// All in one bucket: it spills over, around the end of the slots, and closes up again.
TEST(CacheStoreCosts, BucketsSpillAndCloseUp) {
    const auto cache = std::make_unique<RecencyCache>();
    support::Random random(5);
    std::set<int> known;
    for (int step = 0; step < 20000; ++step) {
        const int number = static_cast<int>(random.below(60));
        const uint32_t hash = 1023u + 1024u * static_cast<uint32_t>(number % 3 + 13);
        const Item key(number);
        const auto* const found = cache->find(key.getConstByteSpan(), hash);
        ASSERT_EQ(found != nullptr, known.count(number) != 0);
        if (!found) {
            cache->add(key.getConstByteSpan(), hash, nullptr, nullptr);
            known.insert(number);
        } else if (random.oneIn(2)) {
            EXPECT_EQ(found->key, key);
            cache->dropFirst();
            known.erase(number);
        }
        ASSERT_EQ(cache->size(), known.size());
    }
}

} // namespace
