// Hunts: entries that a copy loses or should leave out, walks that do not end, transactions left open, log lines and
// files that read otherwise than they always did.
#include "kiv/store/Store.h"

#include "kiv/core/ReportGenerator.h"
#include "kiv/store/ScopedTransaction.h"
#include "tests/store/Trees.h"
#include "tests/support/LogLines.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kiv {
namespace {

using namespace support;
using testing::ElementsAre;

// A millisecond goes by with each value read.
struct SlowStore : MemoryStore {
    explicit SlowStore(ManualClock& clock) : MemoryStore(false), m_clock(clock) {}
    const Item* get(const Item& key) override {
        m_clock.advance(1);
        return MemoryStore::get(key);
    }

private:
    ManualClock& m_clock;
};

TEST(Store, CopiesEverythingInOneTransaction) {
    ManualClock clock;
    SlowStore source(clock);
    WatchedStore target;
    LogLines log;
    target.copyFrom(&source);
    EXPECT_EQ(target.calls, "begin commit flush ");
    EXPECT_THAT(log.take(), ElementsAre("[STORE] copying database", "[STORE] copied 0 items in 0s (0items/s)"));

    for (int i = 0; i < 3; ++i) source.set(list(i), list(i));
    target.set(list(0, "kept"), list(1));
    target.calls.clear();
    target.copyFrom(&source);
    EXPECT_EQ(target.calls, "begin setINT:0 setINT:1 setINT:2 commit flush ");
    EXPECT_EQ(contentOf(target).size(), 4u);
    EXPECT_EQ(log.take().back(), "[STORE] copied 3 items in 3e-06s (1000items/s)"); // seconds, divided once more
    target.copyFrom(&source, {list(0)});
    EXPECT_EQ(log.take().front(), "[STORE] copying database with exclude filters");

    MemoryStore fast(false), second(false);
    fast.set(list(1), list(1));
    second.copyFrom(&fast);
    EXPECT_EQ(log.take().back(), "[STORE] copied 1 items in 0s (infitems/s)");
}

TEST(Store, CopyLeavesAloneWhatItCantCopy) {
    WatchedStore store;
    OutputCapture log;
    store.copyFrom(nullptr);
    EXPECT_THAT(log.take(), testing::EndsWith("[ERROR] [STORE] no database to copy\n"));
    store.copyFrom(&store, {list(1)});
    EXPECT_THAT(log.take(), testing::EndsWith("[ERROR] [STORE] cant copy a database to itself\n"));
    EXPECT_EQ(store.calls, "");
}

TEST(Store, CopyThatFailsIsRolledBack) {
    MemoryStore source(false);
    for (int i = 0; i < 5; ++i) source.set(list(i), list(i));
    WatchedStore target;
    LogLines log;
    target.setsLeft = 3;
    EXPECT_THROW(target.copyFrom(&source), std::bad_alloc);
    EXPECT_TRUE(target.calls.ends_with("rollback ")) << target.calls;
    EXPECT_THAT(contentOf(target), ElementsAre());
    EXPECT_EQ(target.getNumberOfLayers(), 1u);
}

TEST(Store, WritesAllEntriesAsLines) {
    MemoryStore store(false);
    store.set(list("a"), list(1, "two"));
    store.set(list("a", 2.5), {});
    const std::string first = "{<STR:a>} = {<INT:1><STR:two>}", second = "{<STR:a><FLT:2.5>} = {}";
    LogLines log;
    store.dumpraw();
    EXPECT_THAT(log.take(), ElementsAre("store raw dump begin:", first, second, "store raw dump end"));

    TextReportGenerator report;
    report.beginSection("before:");
    store.report(&report);
    store.report(nullptr);
    EXPECT_EQ(report.getText(), "before:\n\nstore:\n  " + first + "\n  " + second + "\n");

    const std::string path = (std::filesystem::temp_directory_path() / "kivStoreDump\xC3\xA9.txt").string();
    ASSERT_TRUE(String(std::string(1000, 'x')).saveToFile(path)); // to be truncated
    store.dumpToFile(path.c_str());
    EXPECT_THAT(log.take(), ElementsAre("store raw dump to " + path, "store raw dump end"));
    String text;
    EXPECT_TRUE(text.loadFromFile(path));
    EXPECT_EQ(text, first + "\n" + second + "\n");
    std::filesystem::remove(path);
    store.dumpToFile("no/such/folder/file");
    EXPECT_THAT(log.take(), ElementsAre("cant open file 'no/such/folder/file'"));
}

TEST(Store, BenchmarkReadsEveryEntry) {
    ManualClock clock;
    SlowStore store(clock);
    for (int i = 0; i < 7; ++i) store.set(list(i), list(i));
    LogLines log;
    store.benchmark();
    EXPECT_EQ(log.takeOne(), "store benchmark: 7ms");
}

TEST(ScopedTransaction, EndsOnceAndRollsBackByItself) {
    auto store = makeObject<WatchedStore>();
    Item key(store.get());
    {
        ScopedTransaction a(store.get()), b(SmartPointer<Store>{store}), c(key), d(&key);
        EXPECT_EQ(store->getNumberOfLayers(), 5u);
        store->set(list(1), {});
        d.commit();
        d.commit();
        d.rollback();
        c.rollback();
        c.commit();
        EXPECT_EQ(store->getNumberOfLayers(), 3u);
        EXPECT_FALSE(store->get(list(1)));
    }
    EXPECT_EQ(store->calls, "begin begin begin begin setINT:1 commit rollback rollback rollback ");
    {
        const Item unbound;
        ScopedTransaction none(static_cast<Store*>(nullptr)), empty(SmartPointer<Store>{}), free(unbound),
            noItem(static_cast<Item*>(nullptr));
        none.commit();
        empty.rollback();
    }
    MemoryStore plainStore(false);
    LogLines log;
    { ScopedTransaction transaction(&plainStore); }
    EXPECT_EQ(log.takeOne(), "memorystore, rollback called in transactionless mode");
}

} // namespace
} // namespace kiv
