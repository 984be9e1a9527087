// Hunts: loops that are not seen or not ended, scripts ended that only wait, natives and threads left in disorder by
// it.
#include "kiv/core/Clock.h"
#include "kiv/script/VM.h"
#include "tests/support/LogLines.h"

#include <gmock/gmock.h>

namespace {

using testing::AllOf;
using testing::Contains;

constexpr char tooLong[] = "[SQ.INTERPRETER] the script has run for more than 20 ms";

struct WatchdogTest : testing::Test {
    WatchdogTest() { vm.setWatchdog(20); }

    support::LogLines log;
    kivSq::VM vm;
};

TEST_F(WatchdogTest, EndsWhatNeverPauses) {
    const char* const scripts[] = {
        "local n = 0\nwhile (true) {\n    ++n\n}",
        "while (true) {}",
        "while (true);",
        "for (;;);",
        "for (local i = function() { return 1; }(), n = [1, 2]; i < 2; n[0] += 1) { local a = n[1] }",
        "local n = 1; do n += 1 while (n > 0)",
        "do {\n local a = 1\n} while (true)",
        "function f() { return f() } f()",
        "local f; f = @() f() + 1; f()",
        "function g() {\n while (true)\n yield 1\n}\nforeach (x in g())\n continue",
        "function g() { return f() } function f() { return g() } f()",
        "[1].map(function(x) {\n while (true)\n continue\n})",
        "class A { function _add(b) {\n while (true)\n continue\n} } A() + 1",
        "newthread(function() {\n while (true)\n continue\n}).call()",
        "while (true) {\n try {\n while (true)\n continue\n} catch (e) {\n std.info(1)\n}\n}",
        R"(try { try {
while (true) {} } catch (e) {
throw e } } catch (e) { for (;;)
continue })",
        "compilestring(\"while (true)\\ncontinue\")()",
    };
    for (const char* script : scripts) {
        EXPECT_FALSE(vm.executeString(script, "test")) << script;
        EXPECT_THAT(log.take(), Contains(tooLong)) << script;
        EXPECT_TRUE(vm.executeString("std.isnull(1)", "test"));
    }
    EXPECT_TRUE(vm.executeString(R"(local text = "", i = 0
for (; i < 3; ++i) { for (local k = 0; k < 2;) { text += k; k++ } }
do { text += i--; } while (i > 1, i > 0); while ((i += 1) < 3) text += "while (" + i
foreach (x in [1, 2]) while (false); while (text.len() < 0); std.info(text))",
                                 "loops"));
    EXPECT_EQ(log.takeOne(), "010101321while (1while (2");

    // It waits, and a thread goes on when others have been ended.
    kiv::ManualClock clock;
    vm.executeString(R"(std.async(function() { std.sleep(1000000); std.info("awake") })
std.async(function() { while (true) {} })
std.async(function() { std["yield"](); while (true) {} }))",
                     "test");
    vm.processEvents();
    vm.processEvents();
    clock.advance(1000001);
    vm.processEvents();
    EXPECT_FALSE(vm.threadsActive());
    EXPECT_THAT(log.take(), AllOf(Contains(tooLong), Contains("squirrel thread failed (call)"),
                                  Contains("squirrel thread failed (wake)"), Contains("awake")));
    vm.setWatchdog(0);
    EXPECT_TRUE(vm.executeString("local n = 0; while (n < 100) { ++n\n }", "test"));
    vm.setWatchdog(20);
    vm.executeString("local n = 5\n\nwhile (true)\n    n = 6\n\n\nn = 7", "place");
    EXPECT_THAT(log.take(), Contains("* main() [place:4]"));
}

} // namespace
