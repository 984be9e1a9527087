// Hunts: times in the wrong phase, a longest time that is forgotten, phases that are ended too often.
#include "kiv/system/PerfMon.h"
#include "kiv/logging/Trace.h"
#include "tests/support/LogLines.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <gtest/gtest.h>

namespace kiv {
namespace {

// Until a clock that is none of the library's has moved by so much.
void spin(std::chrono::microseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}

TEST(PerfMon, MeasuresEachPhaseAndThoseWithin) {
    PerfMon perfMon;
    {
        const PerfMon::Scope tick(perfMon, "Tick");
        perfMon.begin("Scheduler");
        spin(std::chrono::microseconds(3000));
        perfMon.end();
        EXPECT_EQ(perfMon.find("Tick")->count, 0u); // still open
    }
    perfMon.begin(std::string("Scheduler").c_str()); // the same by its text
    perfMon.end();

    const PerfMon::Phase &tick = *perfMon.find("Tick"), &scheduler = *perfMon.find("Scheduler");
    EXPECT_TRUE(tick.count == 1 && tick.max == tick.last && tick.total == tick.last) << tick.last;
    EXPECT_TRUE(scheduler.count == 2 && scheduler.max >= 3000 && scheduler.max <= tick.last) << scheduler.max;
    EXPECT_EQ(scheduler.total, scheduler.max + scheduler.last);
    EXPECT_TRUE(perfMon.find("VM")->count == 0 && !perfMon.find("Queues"));

    perfMon.reset();
    EXPECT_EQ(scheduler.count + static_cast<uint64_t>(scheduler.total + scheduler.max + scheduler.last), 0u);
    EXPECT_STREQ(scheduler.name, "Scheduler");
}

TEST(PerfMon, KeepsThePumpsPhasesInOrderAndOthersBehind) {
    PerfMon perfMon;
    {
        const PerfMon::Scope scope(perfMon, "Demo");
        perfMon.begin("VM"); // and not ended
    }
    EXPECT_EQ(perfMon.find("Demo")->count + perfMon.find("VM")->count, 2u);
    std::string names;
    for (const PerfMon::Phase& phase : perfMon.getPhases()) names += std::string(phase.name) + " ";
    EXPECT_EQ(names, "Tick VM Queue Scheduler Demo ");
    support::LogLines lines;
    perfMon.end();
    EXPECT_EQ(lines.takeOne(), "[PERFMON] no phase to end");
}

TEST(PerfMon, IsSeenInATrace) {
    const support::TemporaryFolder folder;
    PerfMon perfMon;
    Trace::start();
    { const PerfMon::Scope scope(perfMon, "VM"); }
    Trace::stop();
    { const PerfMon::Scope scope(perfMon, "Queue"); }
    ASSERT_TRUE(Trace::writeTo(folder.utf8("trace")));
    const std::string text = folder.read("trace");
    EXPECT_NE(text.find(R"("ph":"X","cat":"pump","name":"VM")"), std::string::npos) << text;
    EXPECT_EQ(text.find("Queue"), std::string::npos) << text;
}

} // namespace
} // namespace kiv
