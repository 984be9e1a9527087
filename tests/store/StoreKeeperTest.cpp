// Hunts: good files overwritten by the contents of bad ones, saves lost when another is in progress, after a failure or
// at the end, half-made states and those of open transactions on the disk, and owners that wait for it.
#include "kiv/store/StoreKeeper.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/store/StoreFile.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/data/Items.h"
#include "tests/logging/BackendScope.h"
#include "tests/process/Children.h"
#include "tests/support/Gate.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <random>

namespace kiv {
namespace {

// The value under "a" that a file has; -1 when there is none, -2 when the file can't be loaded.
int numberIn(const std::string& path, const char* key = "a") {
    StoreKeeper keeper;
    int number = -1;
    if (!keeper.open(path)) return -2;
    if (const Item* value = keeper.getStore()->get(key)) value->getIterator().asInteger(number);
    return number;
}

// Always the same numbers.
class Numbers {
public:
    unsigned below(unsigned end) { return static_cast<unsigned>(m_random() % end); }

private:
    std::mt19937 m_random{7};
};

class StoreKeepers : public testing::Test {
protected:
    const support::TemporaryFolder folder;
    const std::string path = folder.utf8("kept");
    support::LogLines log;
    const support::Watchdog watchdog;
};

TEST_F(StoreKeepers, OpenWhatIsWholeAndTouchNothingElse) {
    {
        StoreKeeper keeper;
        keeper.saveSoon();
        EXPECT_EQ(log.takeOne(), "[STORE] nothing is saved: no file is open");
        EXPECT_FALSE(keeper.flush() || keeper.isSaved() || keeper.isOpen());
        EXPECT_TRUE(keeper.open(path) && keeper.isSaved() && keeper.getStore()->isTransactional());
        EXPECT_TRUE(folder.names().empty()) << "nothing was saved yet";
        keeper.getStore()->set("a", 5);
        keeper.saveSoon();
        EXPECT_EQ(numberIn(path), 5) << "without a pool it is there at once";
        EXPECT_EQ(log.takeOne(), "");
        EXPECT_FALSE(keeper.open(folder.utf8("other")));
        EXPECT_EQ(log.takeOne(), "[STORE] can't open '" + folder.utf8("other") + "': another file is open");
    }
    const std::string damaged = folder.read("kept").substr(0, 30);
    folder.write("kept", damaged);
    {
        StoreKeeper keeper;
        EXPECT_FALSE(keeper.open(path) || keeper.isOpen());
        EXPECT_NE(log.takeOne().find("damaged from offset 30 on"), std::string::npos);
        keeper.getStore()->set("a", 6);
        keeper.saveSoon();
        EXPECT_FALSE(keeper.flush());
    }
    EXPECT_EQ(folder.read("kept"), damaged);
    EXPECT_FALSE(StoreKeeper().open(folder.utf8(".")));
}

TEST_F(StoreKeepers, LeaveOutWhatOpenTransactionsHaveChanged) {
    StoreKeeper keeper;
    ASSERT_TRUE(keeper.open(path));
    MemoryStore& store = *keeper.getStore();
    store.set("a", 1);
    for (int i = 2; i < 4; ++i) store.begin(), store.set("a", i), store.set(i, i);
    keeper.saveSoon();
    const std::string copy = folder.utf8("copy");
    EXPECT_TRUE(keeper.saveCopy(copy) && numberIn(copy) == 1);
    EXPECT_EQ(numberIn(path), 1);
    EXPECT_EQ(*store.get("a"), Item(3));
    store.commit();
    store.commit();
    keeper.saveSoon();
    EXPECT_EQ(numberIn(path), 3);
}

// The first write fails, and the listener that is told of it does not return before others wait.
TEST_F(StoreKeepers, WriteOneAtATimeAndTheNewestNextWhileTheOwnerGoesOn) {
    const logging::BackendScope backend{false};
    support::Gate isFailing, mayGoOn;
    int failures = 0;
    const Connection connection = logging::LogBackend::getSignalNewLogMessage().connect([&](int, const char* text) {
        if (std::string_view(text).find("can't save") == std::string_view::npos) return;
        ++failures;
        isFailing.open();
        mayGoOn.pass();
    });
    const auto pool = makeObject<ThreadPool>();
    StoreKeeper keeper;
    ASSERT_TRUE(keeper.open(folder.utf8("later/kept")));
    keeper.saveSoon();
    EXPECT_TRUE(keeper.isBusy());
    isFailing.pass();
    EXPECT_TRUE(keeper.isBusy());
    for (int i = 0; i < 100; ++i) {
        keeper.getStore()->set("a", i);
        keeper.saveSoon();
    }
    std::filesystem::create_directory(folder.path("later"));
    mayGoOn.open();
    EXPECT_TRUE(keeper.flush() && keeper.isSaved());
    EXPECT_EQ(failures, 1);
    EXPECT_EQ(numberIn(folder.utf8("later/kept")), 99);

    std::filesystem::remove_all(folder.path("later"));
    keeper.getStore()->set("a", 100);
    keeper.saveSoon();
    EXPECT_FALSE(keeper.flush() || keeper.isSaved());
    EXPECT_FALSE(keeper.flush());
    EXPECT_FALSE(keeper.isBusy()) << "nobody would save again";
    std::filesystem::create_directory(folder.path("later"));
    EXPECT_TRUE(keeper.flush() && keeper.isSaved()) << "what has failed is tried again";
    EXPECT_EQ(numberIn(folder.utf8("later/kept")), 100);
}

TEST_F(StoreKeepers, SaveEverythingBeforeTheyEnd) {
    Numbers random;
    for (int round = 1; round <= 40; ++round) {
        auto pool = makeObject<ThreadPool>();
        auto keeper = makeObject<StoreKeeper>();
        ASSERT_TRUE(keeper->open(path));
        for (unsigned saves = random.below(20); saves > 0; --saves) {
            keeper->getStore()->set(static_cast<int>(saves), String(random.below(20000), 'x'));
            EXPECT_TRUE(random.below(4) != 0 || keeper->flush());
            keeper->saveSoon();
        }
        keeper->getStore()->set("a", round);
        if (round % 3 == 0) pool->close(); // nobody comes
        if (round % 3 == 1) pool = nullptr;
        keeper->saveSoon();
        EXPECT_TRUE(round % 2 != 0 || (keeper->flush() && keeper->flush()));
        keeper = nullptr;
        ASSERT_EQ(numberIn(path), round);
    }
    EXPECT_EQ(folder.names(), std::set<std::string>{"kept"});
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(StoreKeepers, LeaveTheOldStateOrTheNewWhenTheyAreKilled) {
    Numbers random;
    int last = 0;
    for (int round = 0; round < 12; ++round) {
        support::Child child;
        ASSERT_TRUE(child.start({"keep", path}));
        int safe = 0;
        for (unsigned lines = random.below(3) + 1; lines > 0; --lines) safe = std::stoi(child.nextLine());
        for (unsigned turns = random.below(2000); turns > 0; --turns) child.tick(); // some time
        child.terminate(true);
        last = numberIn(path);
        ASSERT_GE(last, safe);
        ASSERT_EQ(numberIn(path, "b"), last);
    }
}

} // namespace
} // namespace kiv
