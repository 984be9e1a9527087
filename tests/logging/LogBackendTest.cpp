// Hunts: messages lost, doubled or interleaved, locks held into a deadlock by listeners that log, verbose lines hidden
// from the wrong receivers, queues that grow without bound, support buffers flushed a millisecond or byte too early or
// late.
#include "kiv/logging/LogBackend.h"

#include "BackendScope.h"
#include "kiv/core/Clock.h"
#include "kiv/logging/LogOStream.h"
#include "kiv/logging/MessageStream.h"
#include "tests/support/OutputCapture.h"
#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace kiv::logging {

// Looks into the queues, which only the log database's side empties.
struct LogBackendPeek {
    static std::vector<std::string> texts(unsigned queue) {
        std::vector<std::string> texts;
        for (const auto& message : LogBackend::instance().m_queues[queue]) texts.push_back(message->getText());
        return texts;
    }
    static int64_t firstTime(unsigned queue) { return LogBackend::instance().m_queues[queue].front()->getTime(); }
};

namespace {

using Texts = std::vector<std::string>;

// A registered backend with hidden times, its console and its clock.
class LogBackendTest : public testing::Test {
protected:
    explicit LogBackendTest(bool storeMessages = false) : m_backend(storeMessages) { g_hideTimeInConsole = true; }
    ~LogBackendTest() override {
        g_hideTimeInConsole = false;
        g_hideVerboseOutputInConsole = false;
        LogBackend::setQueueLimit(1048576);
    }
    // Connects a listener that notes "level:text".
    Connection listen(Texts& heard) {
        return LogBackend::getSignalNewLogMessage().connect(
            [&](int level, const char* text) { heard.push_back(std::to_string(level) + ':' + text); });
    }

    support::OutputCapture console;
    ManualClock clock{1000, 1700000000000000};

private:
    BackendScope m_backend;
};

class StoringBackendTest : public LogBackendTest {
protected:
    StoringBackendTest() : LogBackendTest(true) {}
};

TEST_F(LogBackendTest, TellsListenersTheTaggedText) {
    Texts heard;
    const Connection connection = listen(heard);
    MessageStream(3, 2) << "x";
    MessageStream(1, 0) << std::string("cut\0off", 7);
    MessageStream(9, 2);
    EXPECT_EQ(heard, (Texts{"3:[ERROR] x", "1:cut", "9:"}));
    EXPECT_EQ(console.take(), std::string("[ERROR] x\ncut\0off\n\n", 19));
    EXPECT_TRUE(LogBackendPeek::texts(1).empty());
}

TEST_F(StoringBackendTest, QueuesByFlagBits) {
    MessageStream(2, 0) << "none";
    MessageStream(1, 1) << "first";
    clock.advance(1);
    MessageStream(2, 2) << std::string("second\0z", 8);
    MessageStream(1, 3) << "both";
    EXPECT_EQ(LogBackendPeek::texts(0), (Texts{"first", "both"}));
    EXPECT_EQ(LogBackendPeek::texts(1), (Texts{std::string("[WARNING] second\0z", 18), "both"}));
    EXPECT_EQ(LogBackendPeek::firstTime(1), 1700000000001000);
    LogBackend::registerBackend(false);
    MessageStream(1, 3) << "not stored";
    EXPECT_EQ(LogBackendPeek::texts(0).size(), 2u);
    LogBackend::unregisterBackend();
    EXPECT_TRUE(LogBackendPeek::texts(0).empty());
}

TEST_F(StoringBackendTest, FullQueuesDropTheirOldestAndSayItOnce) {
    LogBackend::setQueueLimit(3);
    for (char c = 'a'; c <= 'f'; ++c) MessageStream(1, 2) << c;
    EXPECT_EQ(LogBackendPeek::texts(1).size(), 3u);
    EXPECT_EQ(LogBackendPeek::texts(1).back(), "f");
    EXPECT_EQ(console.take(), "a\nb\nc\nd\n[WARNING] [LOG] the log database takes no messages, the oldest are dropped\n"
                              "e\nf\n");
}

TEST_F(StoringBackendTest, VerboseLinesAreHiddenFromTheConsoleOnly) {
    Texts heard;
    const Connection connection = listen(heard);
    g_hideVerboseOutputInConsole = true;
    MessageStream(0, 2) << "quiet";
    MessageStream(2, 2) << "also [VERBOSE] here";
    MessageStream(2, 2) << "shown";
    EXPECT_EQ(console.take(), "[WARNING] shown\n");
    EXPECT_EQ(LogBackendPeek::texts(1).size(), 3u);
    EXPECT_EQ(heard.front(), "0:[VERBOSE] quiet");
}

TEST_F(LogBackendTest, VerboseLinesThatNobodySeesAreNotFormatted) {
    struct Counting {
        int& count;
        operator std::string_view() const { return ++count, "x"; }
    };
    auto formats = [&](int level, int flags) {
        int formatted = 0;
        MessageStream(level, flags) << Counting{formatted};
        return formatted == 1;
    };
    EXPECT_TRUE(formats(0, 2));
    g_hideVerboseOutputInConsole = true;
    EXPECT_TRUE(!formats(0, 2) && formats(1, 2));
    LogBackend::registerBackend(true);
    EXPECT_TRUE(formats(0, 1) && !formats(0, 0));
    LogBackend::registerBackend(false);
    Connection support = LogBackend::getSignalNewSupportMessage().connect([](const char*) {});
    EXPECT_TRUE(formats(0, 0));
    support.disconnect();
    Texts heard;
    Connection listener = listen(heard);
    EXPECT_TRUE(formats(0, 0));
    listener.disconnect();
    EXPECT_FALSE(formats(0, 0));
    LogBackend::unregisterBackend();
    EXPECT_FALSE(formats(0, 2));
}

TEST_F(StoringBackendTest, WhatAListenerLogsIsPublishedAfterItsMessage) {
    Texts heard;
    const Connection connection = LogBackend::getSignalNewLogMessage().connect([&](int, const char* text) {
        heard.push_back(text);
        if (heard.size() == 1) {
            MessageStream(2, 2) << "nested";
            MessageStream(1, 2) << "second";
            EXPECT_EQ(heard.size(), 1u);
        }
    });
    MessageStream(1, 2) << "outer";
    EXPECT_EQ(heard, (Texts{"outer", "[WARNING] nested", "second"}));
    EXPECT_EQ(LogBackendPeek::texts(1), heard);
    EXPECT_EQ(console.take(), "outer\n[WARNING] nested\nsecond\n");
}

TEST_F(StoringBackendTest, AListenerThatAlwaysLogsDoesNotLogForever) {
    size_t told = 0;
    const Connection connection = LogBackend::getSignalNewLogMessage().connect([&](int, const char*) {
        ++told;
        MessageStream(1, 2) << "nested";
    });
    for (const size_t outer : {1u, 2u}) {
        MessageStream(1, 2) << "outer";
        EXPECT_EQ(LogBackendPeek::texts(1).size(), told + outer);
    }
}

TEST_F(StoringBackendTest, AListenerThatThrowsOrMisusesTheBackendHarmsNobody) {
    const Connection throwing = LogBackend::getSignalNewLogMessage().connect([](int level, const char*) {
        if (level != 1) return;
        LogBackend::registerBackend(false);
        LogBackend::unregisterBackend();
        LogBackend::processSupportMessages();
        throw std::runtime_error("listener");
    });
    MessageStream(1, 2) << "x";
    EXPECT_EQ(LogBackendPeek::texts(1),
              (Texts{"x", "[ERROR] [LOG] registerBackend was called by a listener and is ignored",
                     "[ERROR] [LOG] unregisterBackend was called by a listener and is ignored",
                     "[ERROR] [LOG] processSupportMessages was called by a listener and is ignored"}));
}

TEST_F(LogBackendTest, CollectsSupportMessages) {
    std::string received;
    MessageStream(1, 2) << "before anyone listens [SUPPORT]";
    Connection connection = LogBackend::getSignalNewSupportMessage().connect([&](const char* text) {
        received += text;
        MessageStream(1, 2) << "logged by the listener";
    });
    MessageStream(2, 2) << std::string_view("[SUPPORT] behind a tag\0cut", 26);
    MessageStream(1, 2) << "[SUPPORT] at the start";
    clock.advance(42);
    MessageStream(1, 4) << "[SUPPORT] at the start, with the flag";
    MessageStream(1, 2) << "unrelated";
    clock.advance(3600001);
    console.take();
    LogBackend::processSupportMessages();
    EXPECT_EQ(received, "2023-11-14T22:13:20.000Z [WARNING] [SUPPORT] behind a tag\n"
                        "2023-11-14T22:13:20.042Z [SUPPORT] at the start, with the flag\n");
    EXPECT_EQ(console.take(), "logged by the listener\n");
    LogBackend::processSupportMessages();
    EXPECT_EQ(console.take(), "");
}

TEST_F(LogBackendTest, FlushesSupportMessagesAtTheirThresholds) {
    size_t received = 0;
    const Connection connection = LogBackend::getSignalNewSupportMessage().connect(
        [&](const char* text) { received = std::string(text).size(); });
    auto append = [&](size_t size) { MessageStream(1, 4) << std::string(size - 26, 'x'); };
    // How much is flushed when it is asked for after a while.
    auto flushed = [&](int64_t milliseconds) {
        received = 0;
        clock.advance(milliseconds);
        LogBackend::processSupportMessages();
        return received;
    };
    // By size, whatever the times.
    append(262000), append(144);
    EXPECT_EQ(flushed(0), 0u);
    append(100);
    EXPECT_NE(flushed(0), 0u);
    append(262145);
    EXPECT_EQ(flushed(0), 262145u);

    // By the age of the first message, while others keep coming.
    append(30);
    EXPECT_EQ(flushed(1800000), 0u);
    append(30);
    EXPECT_EQ(flushed(1), 60u);

    // By quiet, once an hour has passed since the last flush.
    clock.advance(3600000 - 200000);
    append(30);
    EXPECT_TRUE(flushed(200000) == 0 && flushed(1) == 30);
    clock.advance(3600001);
    append(30);
    EXPECT_TRUE(flushed(180000) == 0 && flushed(1) == 30 && flushed(10000000) == 0);
}

TEST_F(LogBackendTest, RegisteringAgainStartsAfresh) {
    g_hideTimeInConsole = false;
    Texts heard;
    const Connection connection = listen(heard);
    clock.advance(500);
    LogBackend::registerBackend(false);
    MessageStream(1, 2) << "still counting";
    LogBackend::unregisterBackend();
    MessageStream(1, 2) << "bare";
    LogBackend::registerBackend(false);
    clock.advance(2);
    MessageStream(1, 2) << "new start";
    EXPECT_EQ(console.take(), "[  0.500] still counting\nbare\n[  0.002] new start\n");
    EXPECT_EQ(heard, Texts{"1:still counting"});
}

TEST_F(StoringBackendTest, MessagesOfManyThreadsNeverInterleave) {
    // Threads log while others register, unregister, connect and ask for support flushes. Every line must come out
    // whole, in one write, once, and in its thread's order; the listener runs on one thread at a time.
    constexpr int perThread = 400;
    std::atomic<int> inside = 0, overlaps = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([t] {
            for (int n = 0; n < perThread; ++n) MessageStream(1, 3) << t << ' ' << std::string(100, 'x') << ' ' << n;
        });
    }
    threads.emplace_back([&] {
        for (int n = 0; n < perThread; ++n) {
            const Connection connection = LogBackend::getSignalNewLogMessage().connect([&](int, const char*) {
                if (++inside != 1) ++overlaps;
                --inside;
            });
            if (n % 8 == 0) LogBackend::unregisterBackend();
            LogBackend::registerBackend(n % 2 == 0);
            LogBackend::processSupportMessages();
        }
    });
    for (auto& thread : threads) thread.join();
    std::map<int, int> next;
    for (const std::string& line : console.writes) {
        std::istringstream parts(line);
        int thread = -1, number = -1;
        std::string filling;
        parts >> thread >> filling >> number;
        ASSERT_TRUE(parts && filling == std::string(100, 'x') && line.back() == '\n') << line;
        ASSERT_EQ(next[thread]++, number);
    }
    EXPECT_EQ(console.writes.size(), 3u * perThread);
    EXPECT_EQ(overlaps, 0);
}

TEST_F(LogBackendTest, LogOStreamPublishesCompleteLines) {
    Texts heard;
    const Connection connection = listen(heard);
    LogOStream stream(2);
    stream << "a\nb";
    EXPECT_EQ(heard, Texts{"2:[WARNING] a"});
    stream << 1.5 << '\n' << '\n' << "c" << std::flush;
    EXPECT_EQ(heard, (Texts{"2:[WARNING] a", "2:[WARNING] b1.5", "2:[WARNING] "}));
}

} // namespace
} // namespace kiv::logging
