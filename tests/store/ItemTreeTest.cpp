// Hunts: siblings and children taken for each other, walks that leave the subtree, results changed on failure, paths
// with gaps, transactions left open, copies that never end or overwrite what they still have to read.
#include "kiv/core/Random.h"
#include "kiv/store/CacheStore.h"
#include "kiv/store/Store.h"
#include "tests/store/Trees.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/LogLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv {
namespace {

using namespace support;
using testing::ElementsAre;

// A key of the store.
template <class... Values>
Item in(Store& store, const Values&... values) {
    Item key(&store);
    key.concatItem(list(values...));
    return key;
}

Item bound(Store& store, const Item& key) {
    Item copy(key);
    copy.setStore(&store);
    return copy;
}

// That a step gives `expected`, or, for null, nothing, and leaves its result alone then.
void expectStep(bool (Item::*step)(Item&) const, const Item& from, const Item* expected) {
    Item out("untouched");
    const bool found = (from.*step)(out);
    ASSERT_EQ(found, expected != nullptr) << from.asString();
    EXPECT_EQ(Item::compareTotal(out, expected ? *expected : Item("untouched")), 0) << from.asString();
    EXPECT_EQ(out.getStore(), expected ? from.getStore() : nullptr);
    Item itself(from);
    EXPECT_TRUE((itself.*step)(itself) == found && Item::compareTotal(itself, expected ? *expected : from) == 0);
}

TEST(ItemTree, StepsThroughRandomTreesAsTheyWereMade) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        RandomTree tree(seed);
        MemoryStore store(false);
        tree.fill(store);
        for (const auto& [key, value] : tree.entries) {
            const auto& children = tree.children[key];
            expectStep(&Item::child, bound(store, key), children.empty() ? nullptr : &children.front());
            expectStep(&Item::lastChild, bound(store, key), children.empty() ? nullptr : &children.back());
            for (size_t i = 0; i < children.size(); ++i) {
                const Item child = bound(store, children[i]);
                expectStep(&Item::next, child, i + 1 < children.size() ? &children[i + 1] : nullptr);
                expectStep(&Item::prev, child, i > 0 ? &children[i - 1] : nullptr);
            }
        }
        if (testing::Test::HasFailure()) FAIL() << "seed " << seed;
    }
}

TEST(ItemTree, StepsAcrossGapsAndPastMarkers) {
    MemoryStore store(false);
    Item marked = list(7);
    marked.addWildcard();
    const Item almostLong = list(std::string(254, 'a').c_str());
    for (const Item& key : {Item(), list(5, 6, 7), list(7), marked, almostLong, list("z", 1)}) store.set(key, {});
    const auto step = [&](bool (Item::*way)(Item&) const, const Item& from) {
        Item out;
        return ((bound(store, from).*way)(out) ? out.asBrowsableString() : String("none")).to_std_string();
    };
    for (const auto& first : {step(&Item::child, Item()), step(&Item::next, list(4))})
        EXPECT_EQ(first, "INT:5;INT:6;INT:7");
    EXPECT_EQ(step(&Item::prev, list(6)) + step(&Item::lastChild, Item()), "INT:5z");
    EXPECT_EQ(step(&Item::prev, almostLong), "INT:7");
    EXPECT_EQ(step(&Item::next, list(7)), std::string(254, 'a'));
    EXPECT_EQ(step(&Item::next, almostLong), "z;INT:1");
    // What is not stored has no children; what lies behind a marker is nobody's child.
    for (const Item& key : {list(5, 6), list(7)})
        EXPECT_EQ(step(&Item::child, key) + step(&Item::lastChild, key), "nonenone");
    EXPECT_EQ(step(&Item::next, list(7, 1)) + step(&Item::next, Item()) + step(&Item::prev, Item()), "nonenonenone");
}

TEST(ItemTree, StoreLeavesNoGaps) {
    WatchedStore store;
    in(store, 1, "a", 2).store("value");
    EXPECT_EQ(store.calls, "begin setINT:1;a setINT:1 set setINT:1;a;INT:2 commit ");
    store.calls.clear();
    in(store, 1, "b", 2, 3).store("value");
    EXPECT_EQ(store.calls, "begin setINT:1;b;INT:2 setINT:1;b setINT:1;b;INT:2;INT:3 commit ");
    store.calls.clear();
    in(store, 1, "b", 2, 3).store("other");
    in(store).store("root");
    EXPECT_EQ(store.calls, "setINT:1;b;INT:2;INT:3 set ");
    EXPECT_EQ(*in(store, 1, "b", 2, 3).fetch(), Item("other"));
    EXPECT_EQ(in(store, 1, "b", 2).fetch()->getPlainSize(), 0u);

    // The first ancestor that is there is the last that is looked at.
    store.set(in(store, 9, 9, 9), Item());
    in(store, 9, 9, 9, 1, 2).store("value");
    EXPECT_FALSE(in(store, 9).exists());

    const auto before = contentOf(store);
    store.calls.clear();
    store.setsLeft = 2;
    EXPECT_THROW(in(store, 8, 8, 8, 8).store("value"), std::bad_alloc);
    EXPECT_TRUE(store.calls.ends_with("rollback ") && contentOf(store) == before);
}

TEST(ItemTree, StoresWhatTheStoreItselfHandedOut) {
    WatchedStore store;
    const std::string text(100, 'x');
    const Item value = list(text.c_str(), list(text.c_str(), 1));
    in(store, "from").store(value);
    const auto fetch = [&] { return in(store, "from").fetch(); };
    in(store, "a", 1, 2).store(*fetch());
    in(store, "b", 1, 2).copyValueFrom(in(store, "from"));
    in(store, "c", 1, 2).copyValueFrom(in(store, "nowhere"));
    Item nested;
    auto it = fetch()->getIterator();
    it.skip();
    ASSERT_TRUE(it.asWeakSubItem(nested));
    in(store, "d", 1, 2).store(nested);
    // Keys that lie in a value.
    in(store, "path").store(list(list("e", 1, text.c_str())));
    const auto keyInValue = [&] {
        EXPECT_TRUE(in(store, "path").fetch()->getIterator().asWeakSubItem(nested));
        nested.setStore(&store);
        return std::move(nested);
    };
    keyInValue().store("value");
    ManualClock clock(0, 1000);
    in(store, "e", 1, text.c_str(), "child").store("below");
    in(store, "log").archive("copy", keyInValue());
    EXPECT_TRUE(*in(store, "a", 1, 2).fetch() == value && *in(store, "b", 1, 2).fetch() == value);
    EXPECT_FALSE(in(store, "c").exists());
    EXPECT_EQ(*in(store, "d", 1, 2).fetch(), list(text.c_str(), 1));
    EXPECT_EQ(*in(store, "e", 1, text.c_str()).fetch(), Item("value"));
    EXPECT_EQ(*in(store, "log", 1000, "value").fetch(), Item("value"));
}

bool isBelow(const Item& key, const Item& ancestor) {
    Item above(key);
    above.reduceDepthTo(ancestor.getDepth());
    return key.getDepth() > ancestor.getDepth() && Item::compareTotal(above, ancestor) == 0;
}

// Sets what the tree has below `from` below `to`, and empty values where ancestors are missing.
void copyByHand(const RandomTree& tree, const Item& from, const Item& to, Store& target) {
    for (const auto& [key, value] : tree.entries) {
        if (!isBelow(key, from)) continue;
        Item copy(to);
        auto it = key.getIterator();
        it.skip(from.getDepth());
        for (Item element; it.hasNextElement(); copy.concatItem(element)) it.extract(element);
        target.set(copy, value);
        while (copy.parent()) {
            if (!target.get(copy)) target.set(copy, {});
        }
    }
}

TEST(ItemTree, CopiesAndRemovesWholeSubtrees) {
    for (unsigned seed = 0; seed < 100; ++seed) {
        const RandomTree tree(seed);
        support::Random random(seed);
        const auto any = [&] {
            return std::next(tree.entries.begin(), static_cast<ptrdiff_t>(random.below(tree.entries.size())))->first;
        };
        Item from = any();
        for (int i = 0; i < 9 && tree.children.count(from) == 0; ++i) from = any();
        const Item to = any();
        MemoryStore store(true), expected(true), other(true), expectedOther(true);

        // To another store, where the target's ancestors are missing.
        tree.fill(store);
        bound(other, list("far", "away")).copyChildrenRecursive(bound(store, from));
        copyByHand(tree, from, list("far", "away"), expectedOther);
        ASSERT_EQ(contentOf(other), contentOf(expectedOther)) << "seed " << seed;

        // Within a store, also above and below itself.
        tree.fill(expected);
        bound(store, to).copyChildrenRecursive(bound(store, from));
        copyByHand(tree, from, to, expected);
        ASSERT_EQ(contentOf(store), contentOf(expected)) << "seed " << seed;

        // Removal takes a key and its markers along, and nothing else.
        MemoryStore whole(true), rest(true);
        tree.fill(whole);
        whole.set(support::joined(from, plain("\xFE")), {});
        bound(whole, from).remove();
        for (const auto& [key, value] : tree.entries) {
            if (Item::compareTotal(key, from) != 0 && !isBelow(key, from)) rest.set(key, value);
        }
        ASSERT_EQ(contentOf(whole), contentOf(rest)) << "seed " << seed;
    }
}

TEST(ItemTree, CopiesBelowIntegersOfAnySize) {
    MemoryStore store(false);
    const Item wide = plain(std::string("\1\5\0\0\0\0\0\0\0", 9)); // 5, written in eight bytes
    store.set(wide, {}), store.set(support::joined(wide, Item("x")), "value");
    in(store, "to").copyChildrenRecursive(in(store, 5));
    EXPECT_EQ(*in(store, "to", "x").fetch(), Item("value"));
    // What ends in the middle of an element has nothing below it.
    store.set(plain("\3cut off"), {});
    const auto before = contentOf(store);
    in(store, "none").copyChildrenRecursive(bound(store, plain("\3cut")));
    EXPECT_EQ(contentOf(store), before);
}

TEST(ItemTree, CopiesBelowItselfThroughACache) {
    const auto backing = makeObject<MemoryStore>(false);
    const auto cache = makeObject<CacheStore>(backing.get());
    in(*cache, "a", "b").store("value");
    in(*cache, "a", "c").copyChildrenRecursive(in(*backing, "a"));
    EXPECT_TRUE(in(*cache, "a", "c", "b").exists() && !in(*cache, "a", "c", "c").exists());
}

TEST(ItemTree, FindsUniqueIntegers) {
    MemoryStore store(false);
    const Item key = in(store, "ids");
    SeededRandom random(5);
    const auto next = [&] {
        const uint64_t low = random.randomUInt(), high = random.randomUInt() & 0x00FFFFFF;
        return list("ids", static_cast<long long>(low | high << 32 | uint64_t{0x80} << 56));
    };
    const Item taken = next(), free = next();
    store.set(taken, {});
    SeededRandom again(5);
    Item out;
    key.createUniqueInteger(out);
    EXPECT_TRUE(out == free && out.getStore() == &store);
    out = key;
    out.createUniqueInteger(out);
    EXPECT_EQ(out.getPlainSize(), key.getPlainSize() + 9);
}

TEST(ItemTree, ArchivesValuesByTime) {
    ManualClock clock(0, 1000);
    WatchedStore store;
    in(store, "options", "a").store("value");
    in(store, "options", "a", 1).store("child");
    const Item log = in(store, "log");
    store.calls.clear();
    log.archive("changed", in(store, "options", "a"));
    EXPECT_TRUE(store.calls.starts_with("begin ") && store.calls.ends_with("commit "));
    log.archive("gone", in(store, "nowhere"));
    clock.setUtcMicroseconds(-5); // a clock that was ahead before
    log.archive("loose", list("unbound"));
    EXPECT_EQ(store.getNumberOfLayers(), 1u);

    const auto linesOf = [&](const std::string& key) {
        auto lines = contentOf(store);
        std::erase_if(lines, [&](const std::string& line) { return !line.starts_with("{<STR:log>" + key); });
        return lines;
    };
    EXPECT_THAT(linesOf("<INT:1000>"), ElementsAre("{<STR:log><INT:1000>} = {}",
                                                   "{<STR:log><INT:1000><STR:path>} = {<ITEM:{<STR:options><STR:a>}>}",
                                                   "{<STR:log><INT:1000><STR:type>} = {<STR:changed>}",
                                                   "{<STR:log><INT:1000><STR:value>} = {<STR:value>}",
                                                   "{<STR:log><INT:1000><STR:value><INT:1>} = {<STR:child>}"));
    EXPECT_THAT(linesOf("<INT:1001>"),
                ElementsAre("{<STR:log><INT:1001>} = {}", "{<STR:log><INT:1001><STR:path>} = {<ITEM:{<STR:nowhere>}>}",
                            "{<STR:log><INT:1001><STR:type>} = {<STR:gone>}"));
    EXPECT_TRUE(in(store, "log", 1002, "type").exists());

    // The archive of everything does not hold itself, and an earlier run's records stay.
    const size_t entries = contentOf(store).size();
    clock.setUtcMicroseconds(5000);
    in(store, "log", 5000).store("earlier");
    log.archive("all", in(store));
    EXPECT_EQ(linesOf("<INT:5001><STR:value>").size(), entries + 1); // the earlier one, too
    EXPECT_EQ(*in(store, "log", 5000).fetch(), Item("earlier"));

    in(store, "log", "x").store("no record");
    log.archiveDeleteBefore(1000);
    EXPECT_TRUE(in(store, "log", 1000).exists());
    log.archiveDeleteBefore(1002);
    Item first;
    ASSERT_TRUE(log.child(first));
    EXPECT_EQ(first, list("log", 1002));
    log.archiveDeleteBefore(INT64_MAX);
    ASSERT_TRUE(log.child(first));
    EXPECT_EQ(first, list("log", "x"));
    log.archiveDeleteBefore(INT64_MAX);
    EXPECT_TRUE(in(store, "options", "a", 1).exists());
}

TEST(ItemTree, UnboundItemsFindNothingAndSaySoWhenTheyWrite) {
    const Item free = list(1, 2);
    MemoryStore store(false);
    in(store, 1).store("x");
    Item out("untouched");
    LogLines log;
    EXPECT_FALSE(free.fetch() || free.exists() || free.child(out) || free.next(out) || free.prev(out));
    EXPECT_FALSE(free.lastChild(out) || Item(free).next() || Item(free).prev());
    in(store, 2).copyValueFrom(free);
    in(store, 2).copyChildrenRecursive(free);
    EXPECT_THAT(log.take(), ElementsAre());
    free.store(1), free.copyValueFrom(in(store, 1)), free.copyChildrenRecursive(in(store)), free.remove();
    free.begin(), free.commit(), free.rollback(), free.createUniqueInteger(out), free.archive("name", in(store));
    free.archiveDeleteBefore(1);
    EXPECT_EQ(log.take(), std::vector<std::string>(10, "[STORE] item is not bound to a store"));
    EXPECT_EQ(out, Item("untouched"));
    EXPECT_EQ(contentOf(store).size(), 2u);
}

TEST(ItemTree, StepsOfShortKeysAllocateNothing) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library's allocations can't be counted here";
    MemoryStore store(false);
    for (int i = 0; i < 100; ++i) in(store, "branch", i, "leaf").store(i);
    Item key = in(store, "branch", 50), out;
    bool all = true;
    const size_t count = support::allocationsOf([&] {
        all &= key.child(out) && out.exists() && !out.next(out) && key.lastChild(out) && key.next() && key.prev();
        all &= key.next(out) && key.prev(out);
    });
    EXPECT_TRUE(all && count == 0u);
}

} // namespace
} // namespace kiv
