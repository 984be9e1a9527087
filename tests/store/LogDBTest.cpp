// Hunts: lines under wrong numbers, rings that grow or are trimmed for ever, counters of a damaged record, and messages
// that are lost or stored twice when the store fails or logs itself.
#include "kiv/store/LogDB.h"

#include "kiv/core/Clock.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/MemoryStore.h"
#include "tests/data/Items.h"
#include "tests/logging/BackendScope.h"
#include "tests/support/OutputCapture.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <thread>

namespace {

using namespace kiv;
using namespace kiv::logging;
using Texts = std::vector<std::string>;

constexpr int64_t maximum = std::numeric_limits<int64_t>::max();
constexpr int64_t minimum = std::numeric_limits<int64_t>::min();

// Does something of the test's before each write and each commit.
class HookedStore : public MemoryStore {
public:
    explicit HookedStore(bool transactional) : MemoryStore(transactional) {}
    void set(const Item& key, const Item& value) override {
        if (onSet) onSet();
        MemoryStore::set(key, value);
    }
    void commit() override {
        if (onCommit) onCommit();
        MemoryStore::commit();
    }
    std::function<void()> onSet, onCommit;
};

struct SmallLogDB : LogDB {
    SmallLogDB(const Item& root, int32_t limit) : LogDB(root, limit) {}
};

class LogDBTest : public testing::Test {
protected:
    Item root() const {
        Item key("log");
        key.setStore(store.get());
        return key;
    }
    Item below(const char* name) const { return support::joined(root(), Item(name)); }
    int64_t counter(const char* name) const {
        const Item* value = store->get(below(name));
        int64_t number = -1;
        if (value) value->getIterator().asInteger(number);
        return number;
    }
    static void add(LogDB& db, const char* text, int64_t time = 7) {
        LogMessage message(time, text);
        db.addLine(&message);
    }
    static Texts texts(const LogDB& db) {
        Texts all;
        for (int64_t i = db.getBegin(); i < db.getEnd(); ++i) {
            const auto line = db.getLine(i);
            all.push_back(line ? line->getText() : "missing");
        }
        return all;
    }
    size_t entries() const { return store->lastData().getCount(); }

    support::OutputCapture console;
    const SmartPointer<HookedStore> store{new HookedStore(true)};
};

TEST_F(LogDBTest, LinesAreNumberedChildrenOfData) {
    const SmartPointer<LogDB> db(new LogDB(root()));
    add(*db, "one", 1700000000000000), add(*db, "two"), db->addLine(nullptr);
    EXPECT_EQ(counter("pos"), 2);
    EXPECT_EQ(store->get(below("firstPos")), nullptr);
    Item key = db->getData();
    EXPECT_EQ(key, below("data"));
    key.add(0);
    ASSERT_NE(store->get(key), nullptr);
    EXPECT_EQ(*store->get(key), support::list(int64_t{1700000000000000}, "one"));
    EXPECT_NE(store->get(root()), nullptr) << "no gaps in the tree";
    EXPECT_EQ(texts(*db), (Texts{"one", "two"}));
    EXPECT_EQ(db->getLine(0)->getTime(), 1700000000000000);
    EXPECT_FALSE(db->getLine(-1) || db->getLine(2));
}

TEST_F(LogDBTest, TheOldestLinesGoWithTheirSubtreesTwoAtATime) {
    SmartPointer<LogDB> db(new SmallLogDB(root(), 6));
    for (int i = 0; i < 6; ++i) add(*db, "line");
    EXPECT_EQ(counter("firstPos"), -1);
    store->set(support::joined(below("data"), support::list(0, "note")), "about line 0");
    db = new SmallLogDB(root(), 2);
    const size_t before = entries();
    add(*db, "new");
    EXPECT_EQ(db->getBegin(), 2);
    EXPECT_EQ(counter("firstPos"), 2);
    EXPECT_EQ(entries(), before + 2 - 3) << "a line and a counter more, two lines and a note less";
    for (int i = 0; i < 6; ++i) add(*db, "new");
    EXPECT_EQ(db->getEnd() - db->getBegin(), 2);
}

TEST_F(LogDBTest, TheUsualLimitIsTwelveMillionLines) {
    store->set(below("pos"), 12582911);
    const SmartPointer<LogDB> db(new LogDB(root()));
    add(*db, "fits");
    EXPECT_EQ(db->getBegin(), 0);
    add(*db, "is one too many");
    EXPECT_TRUE(counter("firstPos") == 1 && counter("pos") == 12582913);
}

TEST_F(LogDBTest, DamagedCountersAreCorrected) {
    auto opened = [this](const Item& pos, const Item& firstPos, int64_t begin, int64_t end) {
        SCOPED_TRACE(pos.asString() + firstPos.asString());
        store->remove(root(), support::plain("\xFF"));
        store->set(below("pos"), pos);
        store->set(below("firstPos"), firstPos);
        const SmartPointer<LogDB> db(new SmallLogDB(root(), 10));
        EXPECT_EQ(db->getBegin(), begin);
        EXPECT_EQ(db->getEnd(), end);
        const bool isTooLong = end - begin >= 10;
        add(*db, "line");
        EXPECT_EQ(db->getEnd(), end + 1);
        EXPECT_EQ(db->getLine(end)->getText(), "line");
        EXPECT_LE(db->getBegin() - begin, isTooLong ? 2 : 0);
        const SmartPointer<LogDB> again(new SmallLogDB(root(), 10));
        EXPECT_EQ(again->getBegin(), db->getBegin());
        EXPECT_EQ(again->getEnd(), db->getEnd());
    };
    opened(100, 95, 95, 100);
    opened(100, 101, 90, 100);
    opened(5, 6, 0, 5);
    opened(100, -1, 90, 100);
    opened(100, minimum, 90, 100);
    opened(int64_t{1} << 40, (int64_t{1} << 40) - 0x7FFFFFFF, (int64_t{1} << 40) - 0x7FFFFFFF, int64_t{1} << 40);
    opened(int64_t{1} << 40, 0, (int64_t{1} << 40) - 10, int64_t{1} << 40);
    opened(-1, 0, 0, 0);
    opened(minimum, maximum, 0, 0);
    opened(maximum, maximum - 1, 0, 0);
    opened("text", 3, 0, 0);
    opened(Item(), Item(), 0, 0);
    opened(8, 2.0, 0, 8);
}

TEST_F(LogDBTest, LinesThatCantBeReadAreNone) {
    const SmartPointer<LogDB> db(new LogDB(root()));
    for (const Item& value : {Item(), Item(5), support::list("text", 5), support::list(5, 6), support::plain("\x03x"),
                              support::list(5, "good", "and more")}) {
        add(*db, "line");
        store->set(support::joined(db->getData(), Item(db->getEnd() - 1)), value);
    }
    EXPECT_EQ(texts(*db), (Texts{"missing", "missing", "missing", "missing", "missing", "good"}));
}

TEST_F(LogDBTest, WithoutStoreNothingHappens) {
    const kiv::logging::BackendScope backend(true);
    const SmartPointer<LogDB> db(new LogDB(Item("log")));
    EXPECT_NE(console.take().find("[LOG] the log database has no store, its lines are dropped"), std::string::npos);
    add(*db, "lost");
    EXPECT_EQ(db->getEnd(), 0);
    EXPECT_FALSE(db->getLine(0));
    EXPECT_TRUE(LogBackend::flushTo(1, db.get()) == 0u && LogBackend::flushTo(1, nullptr) == 0u);
    const SmartPointer<LogDB> bound(new LogDB(root()));
    EXPECT_EQ(LogBackend::flushTo(1, bound.get()), 1u) << "the message stayed queued";
}

TEST_F(LogDBTest, AnExceptionLeavesTheDatabaseWithoutTheLine) {
    const SmartPointer<LogDB> db(new SmallLogDB(root(), 2));
    for (const char* text : {"a", "b"}) add(*db, text);
    for (int failing = 1; failing <= 3; ++failing) {
        int writes = 0;
        store->onSet = [&] {
            if (++writes == failing) throw std::bad_alloc();
        };
        EXPECT_THROW(add(*db, "refused"), std::bad_alloc);
        store->onSet = nullptr;
        EXPECT_EQ(store->getNumberOfLayers(), 1u);
        EXPECT_EQ(texts(*db), (Texts{"a", "b"}));
        EXPECT_EQ(counter("pos"), 2);
    }
}

class LogFlushTest : public LogDBTest {
protected:
    static void log(const std::string& text, int flags = 2) { MessageStream(1, flags) << text; }

    const kiv::logging::BackendScope m_backend{true};
    const SmartPointer<LogDB> db{new LogDB(root())};
};

TEST_F(LogFlushTest, MovesTheQueueInOrderAndInBatches) {
    const kiv::ManualClock clock(0, 1700000000000000);
    int commits = 0;
    store->onCommit = [&] { commits += store->getNumberOfLayers() == 2; };
    for (int i = 0; i < 600; ++i) log(std::to_string(i));
    log("other queue", 1);
    EXPECT_TRUE(LogBackend::flushTo(1, db.get()) == 512u && LogBackend::flushTo(1, db.get()) == 88u);
    EXPECT_TRUE(LogBackend::flushTo(1, db.get()) == 0u && LogBackend::flushTo(2, db.get()) == 0u);
    EXPECT_EQ(LogBackend::flushTo(0, db.get()), 1u);
    EXPECT_EQ(commits, 3) << "a batch is one transaction, and without a message there is none";
    ASSERT_EQ(db->getEnd(), 601);
    for (int i = 0; i < 600; ++i) ASSERT_EQ(db->getLine(i)->getText(), std::to_string(i));
    EXPECT_EQ(db->getLine(5)->getTime(), 1700000000000000);
    LogBackend::unregisterBackend();
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 0u);
}

TEST_F(LogFlushTest, WhatTheStoreRefusesStaysQueued) {
    const Texts all{"a", "b", "c", "d"};
    for (const std::string& text : all) log(text);
    store->onSet = [&] {
        if (db->getEnd() == 2) throw std::bad_alloc();
    };
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 2u);
    EXPECT_EQ(texts(*db), (Texts{"a", "b"}));
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 0u);
    store->onSet = nullptr;
    store->onCommit = [&] {
        if (store->getNumberOfLayers() == 2) throw std::bad_alloc(); // of the batch
    };
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 0u);
    EXPECT_EQ(store->getNumberOfLayers(), 1u);
    EXPECT_EQ(texts(*db), (Texts{"a", "b"})) << "what was rolled back is no line";
    store->onCommit = nullptr;
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 2u);
    EXPECT_EQ(texts(*db), all) << "nothing is lost, nothing comes twice";
}

TEST_F(LogFlushTest, MessagesOfTheStoreItselfEndInTheQueue) {
    store->onSet = [] { log("by the store"); };
    log("first");
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 512u) << "each line makes another";
    store->onSet = nullptr;
    while (LogBackend::flushTo(1, db.get()) != 0) continue;
    EXPECT_EQ(texts(*db).front(), "first");
    EXPECT_EQ(texts(*db).back(), "by the store");
}

TEST_F(LogFlushTest, ListenersAreRefused) {
    unsigned moved = 99;
    const kiv::Connection connection = LogBackend::getSignalNewLogMessage().connect([&](int, const char* text) {
        if (std::string(text) == "trigger") moved = LogBackend::flushTo(1, db.get());
    });
    log("before");
    log("trigger");
    EXPECT_EQ(moved, 0u);
    EXPECT_NE(console.take().find("[ERROR] [LOG] flushTo was called by a listener and is ignored"), std::string::npos);
    EXPECT_EQ(LogBackend::flushTo(1, db.get()), 3u);
}

// The flushing thread takes messages one by one while another appends: none may get lost or change places.
TEST_F(LogFlushTest, OthersMayLogMeanwhile) {
    constexpr int messages = 3000;
    std::thread logger([] {
        for (int i = 0; i < messages; ++i) log(std::to_string(i));
    });
    unsigned moved = 0;
    while (moved < messages) moved += LogBackend::flushTo(1, db.get());
    logger.join();
    EXPECT_EQ(moved, static_cast<unsigned>(messages));
    for (int i = 0; i < messages; ++i) ASSERT_EQ(db->getLine(i)->getText(), std::to_string(i));
}

} // namespace
