// Hunts: files that viewers refuse, events of the wrong thread or recording, memory without a limit, threads that race
// with start, stop and writing.
#include "kiv/logging/Trace.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

namespace kiv {
namespace {

using nlohmann::json;

class TraceTest : public testing::Test {
protected:
    void SetUp() override { Trace::start(); }
    void TearDown() override { Trace::stop(); }

    json written() const {
        EXPECT_TRUE(Trace::writeTo(m_folder.utf8("trace.json")));
        return json::parse(m_folder.read("trace.json"));
    }
    // Events but for thread names, by name.
    static std::map<std::string, json> byName(const json& trace) {
        std::map<std::string, json> events;
        for (const json& event : trace.at("traceEvents"))
            if (event.at("ph") != "M") events[event.at("name")] = event;
        return events;
    }

    const support::TemporaryFolder m_folder;
};

TEST_F(TraceTest, SpansNestAndHaveTheirTexts) {
    {
        const TraceSpan outer("test", "outer", "caf\xC3\xA9 \"\\\n\xFF");
        TraceSpan inner("test", "inner");
        EXPECT_TRUE(inner.isRecorded());
        inner.setText(std::string(1000, 'x'));
        Trace::instant("test", "moment");
    }
    const auto events = byName(written());
    ASSERT_EQ(events.size(), 3u);
    const json &outer = events.at("outer"), &inner = events.at("inner"), &moment = events.at("moment");
    EXPECT_EQ(outer.at("args").at("text"), "caf\xC3\xA9 \"\\\n\xEF\xBF\xBD");
    EXPECT_EQ(inner.at("args").at("text"), std::string(256, 'x'));
    EXPECT_TRUE(outer.at("ph") == "X" && outer.at("cat") == "test");
    EXPECT_TRUE(moment.at("ph") == "i" && !moment.contains("args"));
    const auto begin = [](const json& event) { return event.at("ts").get<double>(); };
    const auto end = [&](const json& span) { return begin(span) + span.at("dur").get<double>(); };
    EXPECT_TRUE(begin(outer) >= 0 && begin(outer) <= begin(inner) && begin(inner) <= begin(moment));
    EXPECT_LE(begin(moment), end(inner) + 0.001); // all are rounded
    EXPECT_LE(end(inner), end(outer) + 0.001);
}

TEST_F(TraceTest, ThreadsHaveNamesAndAsynchronousSpansCrossThem) {
    const uint64_t identifier = Trace::newIdentifier();
    EXPECT_NE(identifier, Trace::newIdentifier());
    Trace::beginAsync("test", "life", identifier, "of a worker");
    std::thread([&] {
        Trace::setThreadName("worker \"1\"");
        Trace::endAsync("test", "life", identifier);
    }).join();
    const json trace = written();
    json begin, end, name;
    for (const json& event : trace.at("traceEvents")) {
        if (event.at("ph") == "b") begin = event;
        if (event.at("ph") == "e") end = event;
        if (event.at("ph") == "M" && event.at("args").at("name") == "worker \"1\"") name = event;
    }
    for (const char* field : {"id", "cat", "name", "pid"}) EXPECT_EQ(begin.at(field), end.at(field)) << field;
    EXPECT_TRUE(begin.at("tid") != end.at("tid") && name.at("tid") == end.at("tid"));
    EXPECT_EQ(name.at("name"), "thread_name");
}

TEST_F(TraceTest, RecordsOnlyWhatBeginsAndEndsWhileItIsOn) {
    Trace::stop();
    {
        const TraceSpan before("test", "before", "text");
        EXPECT_FALSE(before.isRecorded());
        Trace::start();
        const TraceSpan again("test", "of an earlier recording");
        Trace::start();
        const TraceSpan within("test", "cut");
        Trace::instant("test", "kept");
        Trace::stop();
    }
    Trace::instant("test", "after");
    const json trace = written();
    EXPECT_TRUE(byName(trace).size() == 1u && byName(trace).contains("kept"));
    EXPECT_EQ(trace.at("otherData").at("dropped"), 0);
}

TEST_F(TraceTest, KeepsTheFirstAndCountsTheRest) {
    Trace::start(1000);
    for (int i = 0; i < 2500; ++i) Trace::instant("test", i < 1000 ? "early" : "late");
    EXPECT_TRUE(Trace::getNumberOfEvents() == 1000 && Trace::getNumberOfDropped() == 1500);
    const json trace = written();
    EXPECT_TRUE(byName(trace).count("late") == 0u && trace.at("otherData").at("dropped") == 1500);
    Trace::start(1);
    EXPECT_EQ(Trace::getNumberOfEvents() + Trace::getNumberOfDropped(), 0u);
}

TEST_F(TraceTest, AFileThatCannotBeWrittenIsLogged) {
    support::LogLines lines;
    EXPECT_FALSE(Trace::writeTo(m_folder.utf8("no/such/folder")));
    EXPECT_THAT(lines.takeOne(),
                testing::AllOf(testing::StartsWith("[TRACE] "), testing::HasSubstr("folder can't be ")));
}

// Nothing is lost or doubled while others write, and restarts in between leave a recording that is whole.
TEST_F(TraceTest, ManyThreadsRecordWhileItIsWrittenAndRestarted) {
    constexpr int threadCount = 4, eventCount = 3000;
    const auto recordAll = [&](auto meanwhile) {
        std::atomic<int> running{threadCount};
        std::vector<std::thread> threads;
        for (int i = 0; i < threadCount; ++i) {
            threads.emplace_back([&] {
                for (int k = 0; k < eventCount; ++k) {
                    if (k % 1000 == 0) Trace::setThreadName("recorder");
                    const TraceSpan span("test", "span", "text");
                }
                --running;
            });
        }
        while (running > 0) meanwhile();
        for (std::thread& thread : threads) thread.join();
    };
    recordAll([&] { written(); });
    EXPECT_TRUE(Trace::getNumberOfEvents() == size_t{threadCount} * eventCount && Trace::getNumberOfDropped() == 0);
    recordAll([] { Trace::start(500); });
    Trace::start(10);
    for (int i = 0; i < 20; ++i) Trace::instant("test", "moment");
    EXPECT_EQ(Trace::getNumberOfEvents(), 10u); // the count has not drifted
    EXPECT_EQ(written().at("traceEvents").back().at("name"), "moment");
}

} // namespace
} // namespace kiv
