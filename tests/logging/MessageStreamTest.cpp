// Hunts: wrong tags and time stamps, text taken for a format or cut at a zero, numbers in another form than a classic
// stream gives them, values that can't be streamed, lines that a reading process would take for packets.
#include "kiv/logging/MessageStream.h"

#include "BackendScope.h"
#include "kiv/core/Clock.h"
#include "kiv/core/String.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/OutputCapture.h"
#include <climits>
#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <sstream>

namespace kiv::logging {
namespace {

TEST(MessageStream, PrintsTheTagAloneWithoutBackend) {
    support::OutputCapture console;
    for (const int level : {0, 1, 2, 3, 4, 5, -1}) MessageStream(level, 2) << 'x';
    EXPECT_EQ(console.take(), "[VERBOSE] x\nx\n[WARNING] x\n[ERROR] x\n[ASSERT] x\nx\nx\n");
}

TEST(MessageStream, PrintsSecondsSinceTheBackendStarted) {
    support::OutputCapture console;
    ManualClock clock(777);
    const BackendScope backend(false);
    auto at = [&](int64_t milliseconds, int flags, const char* line) {
        clock.advance(milliseconds);
        MessageStream(2, flags) << "x";
        EXPECT_EQ(console.take(), line);
    };
    at(0, 2, "[  0.000] [WARNING] x\n");
    at(12345, 2, "[ 12.345] [WARNING] x\n");
    at(0, 1, "< 12.345> [WARNING] x\n");
    at(987654321, 3, "<987666.666> [WARNING] x\n");
    at(int64_t{1} << 40, 0, "[1100499294.442] [WARNING] x\n");
}

TEST(MessageStream, FormatsNumbersLikeAClassicStream) {
    struct Grouping : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    support::OutputCapture console;
    auto same = [&](auto value) {
        std::ostringstream expected;
        expected.imbue(std::locale::classic());
        expected << value;
        MessageStream(1, 2) << value;
        EXPECT_EQ(console.take(), expected.str() + "\n");
    };
    same(true), same('c'), same(uint8_t{65}), same(int8_t{66});
    same(SHRT_MIN), same(USHRT_MAX), same(INT_MIN), same(UINT_MAX), same(LONG_MIN), same(ULONG_MAX);
    same(LLONG_MIN), same(ULLONG_MAX);
    same(0.0), same(-0.0), same(1e5), same(1e6), same(1234567.0), same(0.0001), same(0.00001), same(1.0 / 3),
        same(2.5f);
    same(1e300), same(5e-324), same(1.25L);
    same(std::numeric_limits<double>::infinity()), same(-std::numeric_limits<float>::infinity());
    same(std::numeric_limits<double>::quiet_NaN());
    same(static_cast<void*>(&console));
    std::locale::global(before);
}

struct Printable {
    int value;
    friend std::ostream& operator<<(std::ostream& stream, const Printable& printable) {
        return stream << '<' << printable.value << '>';
    }
};

TEST(MessageStream, TakesEveryKindOfText) {
    support::OutputCapture console;
    char array[] = "array";
    MessageStream(1, 2) << "literal " << array << ' ' << std::string("std ") << std::string_view("view ")
                        << static_cast<const char*>(nullptr) << nullptr << String("String ") << Printable{1234}
                        << std::endl;
    EXPECT_EQ(console.take(), "literal array std view String <1234>\n\n");
    MessageStream(1, 2) << "%s%n{}" << std::string("a\0b", 3) << String("c\0d", 3) << SmartCStr("e");
    EXPECT_EQ(console.take(), std::string("%s%n{}a\0bc\0de\n", 14));
    std::string expected;
    {
        MessageStream stream(1, 2);
        for (int i = 0; i < 500; ++i) { // of any length
            const std::string piece(static_cast<size_t>(i), static_cast<char>('a' + i % 26));
            stream << piece << i;
            expected += piece + std::to_string(i);
        }
    }
    EXPECT_EQ(console.take(), expected + "\n");
}

TEST(MessageStream, BreaksEveryLineThatBeginsLikeAPacket) {
    support::OutputCapture console;
    auto prints = [&](const char* text, const char* printed) {
        MessageStream(1, 2) << text;
        EXPECT_EQ(console.take(), printed);
    };
    prints("PKTB16[00]", " PKTB16[00]\n");
    prints("PKTB16[\n\nPKTB16[PKTB16[\r\nPKTB16[", " PKTB16[\n\n PKTB16[PKTB16[\r\n PKTB16[\n");
    prints("a PKTB16[00]\nPKTB16(", "a PKTB16[00]\nPKTB16(\n");
}

TEST(MessageStream, AllocatesNothingForALineOfUsualLength) {
    if (!support::countsLibraryAllocations()) GTEST_SKIP() << "the library has its own operator new here";
    struct : kiv::internal::OutputSink {
        bool write(std::string_view text) override { return size += text.size(), true; }
        size_t size = 0;
    } sink;
    kiv::internal::OutputSink* before = kiv::internal::setStandardOutputSink(&sink);
    const BackendScope backend(false);
    const std::string text(400, 'x');
    MessageStream(1, 2) << "first";
    EXPECT_EQ(support::allocationsOf([&] { MessageStream(2, 2) << text << 123456789 << ' ' << 1.0 / 3; }), 0u);
    EXPECT_GT(sink.size, text.size());
    kiv::internal::setStandardOutputSink(before);
}

} // namespace
} // namespace kiv::logging
