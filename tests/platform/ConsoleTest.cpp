// Hunts: text lost, reordered or cut on its way to standard output, a file taken for a terminal.
#include "kiv/platform/Console.h"

#include "tests/support/OutputCapture.h"
#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace kiv::internal {
namespace {

// Standard output as a file receives it.
template <class Work>
std::string captured(Work work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

TEST(Console, WritesAfterWhatTheProgramHasPrinted) {
    const std::string large(3 * 1024 * 1024, 'x');
    const std::string written = captured([&] {
        std::printf("printed ");
        EXPECT_TRUE(writeStandardOutput(std::string_view("a\0b\n", 4)) && writeStandardOutput(""));
        std::printf("again\n");
        EXPECT_TRUE(writeStandardOutput(large));
        EXPECT_FALSE(isTerminal(StandardStream::Output)) << "a file is none";
        EXPECT_EQ(getTerminalWidth(StandardStream::Output), 0u);
    });
    EXPECT_EQ(written, std::string("printed a\0b\nagain\n", 18) + large);
}

TEST(Console, GivesASinkWhatItWouldWrite) {
    const std::string written = captured([] {
        support::OutputCapture outer;
        writeStandardOutput("outer");
        {
            support::OutputCapture inner;
            writeStandardOutput("inner");
            EXPECT_EQ(inner.take(), "inner");
        }
        EXPECT_EQ(outer.take(), "outer");
    });
    EXPECT_EQ(written, "");
}

} // namespace
} // namespace kiv::internal
