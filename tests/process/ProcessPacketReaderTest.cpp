// Hunts: lines and packets lost, doubled or joined at the ends of reads and of the buffer, output of the child that
// stops the channel or fills memory, levels misread, and a reader or writer that touches what is gone.

#include "kiv/process/ProcessPacketReader.h"
#include "kiv/core/Clock.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/process/ChildLine.h"
#include "kiv/process/ProcessPacketWriter.h"
#include "tests/data/Packets.h"
#include "tests/process/Children.h"

#include <atomic>

namespace kiv {
namespace {

using support::Child;
using support::childProgram;
constexpr unsigned watchdog = 60000;

std::string hex(const std::string& text) {
    return String::encodeBase16FromBuffer(
               {reinterpret_cast<const uint8_t*>(text.data()), static_cast<unsigned>(text.size())})
        .to_std_string();
}

// Bytes in which nothing repeats soon.
SmartPointer<Packet> packetOf(unsigned size, short port = 1) {
    auto packet = makeObject<Packet>(size);
    for (uint32_t i = 0; i < size; ++i) packet->getPayloadPointer()[i] = static_cast<uint8_t>((i * 2654435761u) >> 24);
    packet->setPort(port);
    return packet;
}

bool isSame(const Packet& a, const Packet& b) {
    return payloadOf(a) == payloadOf(b) && std::memcmp(&a.rawHeader(), &b.rawHeader(), sizeof a.rawHeader()) == 0;
}

SmartPointer<Packet> receive(Process& child) {
    return child.getPacketReader()->readTimeout(watchdog, 5);
}

void send(Process& child, const SmartPointer<Packet>& packet) {
    child.getPacketWriter()->write(packet.get());
}

TEST(ChildLine, TimeAndLevelAreRecognisedAndTakenOff) {
    const auto row = [](const char* line, int level, const char* text) {
        const internal::ChildLine read = internal::readChildLine(line, 7);
        EXPECT_EQ(read.level, level) << line;
        EXPECT_EQ(read.text, text) << line;
    };
    row("[ERROR] x", 3, "x"), row("[WARN] x", 2, "x"), row("[WARNING]x", 2, "x"), row("[VERBOSE]  x", 0, " x");
    row("[ASSERT] x", 3, "x"), row("[  0.125] [ERROR] x", 3, "x"), row("< 12.000> [WARNING] x", 2, "x");
    row("[123456.789] [VERBOSE]", 0, ""), row("[  1.234] x", 7, "x"), row("", 7, ""), row("[INFO] x", 7, "[INFO] x");
    for (const char* other : {" [ERROR] x", "[error] x", "[1.234] x", "[  1.234]x", "[  1.234> x", "[ 1 .234] x",
                              "[   .234] x", "[  1.23a] x", "[ 123456.789] x", "[-12.345] x", "[", "[  1.234", "] "})
        row(other, 7, other);
    row("[  0.125] [  0.125] [ERROR] x", 7, "[  0.125] [ERROR] x");
}

TEST(ProcessPacketReader, PacketsAreReadAndAllElseIsLogged) {
    support::OutputCapture output;
    logging::g_hideTimeInConsole = true;
    Child child;
    ProcessPacketReader& reader = *child.getPacketReader();
    const auto run = [&](const std::string& says, const std::string& errors) {
        EXPECT_TRUE(child.start({"say", hex(says), hex(errors)}));
        EXPECT_TRUE(reader.valid());
        output.take();
        std::string payloads;
        while (const auto packet = receive(child)) payloads += hexOf(*packet) + ";";
        EXPECT_FALSE(reader.valid());
        return payloads;
    };
    EXPECT_EQ(run("\r\n\nPKTB16[010000000000000041]\r\n[  0.001] [WARNING] low\r\ntab\there\nPKTB16[xyz]\n"
                  "PKTB16[01000000000000004243]\n\r\n[VERBOSE] quiet\nrest\nPKTB16[0100000",
                  "one\r\n\n[ERROR] two"),
              "41;4243;");
    std::string log = output.take();
    // The two streams are not read in a fixed order.
    for (const std::string line : {"[ERROR] [SUBPROCESS] one\n", "[ERROR] [SUBPROCESS] [ERROR] two\n"}) {
        ASSERT_NE(log.find(line), log.npos) << log;
        log.erase(log.find(line), line.size());
    }
    EXPECT_EQ(log, "[WARNING] [SUBPROCESS] low\n[SUBPROCESS] tab\\there\n[ERROR] corrupt base16 packet encoding\n"
                   "[SUBPROCESS] PKTB16[xyz]\n[VERBOSE] [SUBPROCESS] quiet\n[SUBPROCESS] rest\n"
                   "[ERROR] corrupt base16 packet encoding\n[SUBPROCESS] PKTB16[0100000\n");

    reader.setLogPrefix("<w> ");
    reader.setRedirectUntaggedToVerbose(true);
    EXPECT_EQ(run("plain\n[ERROR] bad\nPKTB16[0100000000000000", ""), "");
    EXPECT_EQ(output.take(), "[VERBOSE] <w> plain\n[ERROR] <w> bad\n[ERROR] corrupt base16 packet encoding\n"
                             "[VERBOSE] <w> PKTB16[0100000000000000\n");
    // Nothing of the broken line is left for the next child.
    EXPECT_EQ(run("41]\nPKTB16[0100000000000000" + std::string(600, '0'), ""), "");
    EXPECT_EQ(output.take(), "[VERBOSE] <w> 41]\n[ERROR] corrupt base16 packet encoding\n[VERBOSE] <w> "
                             "PKTB16[01" +
                                 std::string(256 - 9, '0') + "... (623 characters)\n");
    logging::g_hideTimeInConsole = false;
}

TEST(ProcessPacketReader, ALineWithoutEndIsDroppedAndTheNextPacketArrives) {
    LogLines log;
    Child child;
    ASSERT_TRUE(child.start({"flood-packet", "40"}));
    log.take();
    const auto packet = receive(child);
    ASSERT_TRUE(packet);
    EXPECT_EQ(hexOf(*packet), hex("after"));
    EXPECT_FALSE(receive(child));
    EXPECT_EQ(log.takeOne(), "[SUBPROCESS] line too long, dropped");
}

TEST(ProcessPacketReader, EveryLineOfAFloodOfErrorsIsLoggedOrCounted) {
    LogLines log;
    Child child;
    ASSERT_TRUE(child.start({"errors", "150000"})); // more than pipe and buffer hold
    log.take();
    EXPECT_FALSE(receive(child));
    unsigned seen = 0, counts = 0;
    const std::string prefix = "[SUBPROCESS] ";
    for (const std::string& line : log.take()) {
        const bool isCount = line.ends_with(" lines left out, more than 500 came in a second");
        ASSERT_TRUE(isCount || line == prefix + "line " + std::to_string(seen)) << line;
        seen += isCount ? static_cast<unsigned>(std::stoul(line.substr(prefix.size()))) : 1;
        counts += isCount;
    }
    EXPECT_EQ(seen, 150000u);
    EXPECT_GE(counts, 1u);
}

TEST(ProcessPacketReader, OfMoreThan500LinesInASecondTheNumberIsLogged) {
    ManualClock clock(0xFFFFFF00);
    LogLines log;
    Child child;
    ASSERT_TRUE(child.start({"copy"}));
    log.take();
    // Both streams share the budget; a packet says that all lines before it have come.
    const auto echo = [&](unsigned lines, const std::string& text) {
        for (unsigned i = 0; i < lines; ++i) ASSERT_TRUE(child.writeLine(text));
        send(child, packetOf(1));
        ASSERT_TRUE(receive(child));
    };
    echo(499, "plain");
    EXPECT_EQ(log.take().size(), 499u);
    echo(3, "PKTB16[xyz]"); // one of them with its complaint
    EXPECT_EQ(log.takeOne(), "corrupt base16 packet encoding AND [SUBPROCESS] PKTB16[xyz]");
    clock.advance(999);
    echo(60, "[ERROR] plain");
    EXPECT_EQ(log.takeOne(), "");
    clock.advance(1);
    EXPECT_FALSE(child.getPacketReader()->read());
    EXPECT_EQ(log.takeOne(), "[SUBPROCESS] 62 lines left out, more than 500 came in a second");
    echo(501, "plain");
    EXPECT_EQ(log.take().size(), 500u);
    child.close_stdin();
    EXPECT_FALSE(receive(child));
    EXPECT_EQ(log.takeOne(), "[SUBPROCESS] 1 lines left out, more than 500 came in a second");
    // Each child has its own.
    ASSERT_TRUE(child.start({"copy"}));
    log.take();
    echo(501, "plain");
    EXPECT_EQ(log.take().size(), 500u);
    ASSERT_TRUE(child.terminate(true) && child.start({"exit", "0"}));
    EXPECT_EQ(log.take().front(), "[SUBPROCESS] 1 lines left out, more than 500 came in a second");
}

// What the parent searches its messages for is not a child's to say.
TEST(ProcessPacketReader, LinesForgeNothing) {
    LogLines log;
    Child child;
    const auto shown = [&](const std::string& line, const std::string& expected) {
        log.take();
        ASSERT_TRUE(child.writeLine(line));
        send(child, packetOf(1));
        ASSERT_TRUE(receive(child));
        EXPECT_EQ(log.takeOne(), "[SUBPROCESS] " + expected);
    };
    ASSERT_TRUE(child.start({"copy"}));
    shown("\x1B[2J\xC2\x9B \xFF C:\\x", "\\x1B[2J\\x9B \xC3\xBF C:\\\\x");
    shown("C:\\x \xC3\xA4", "C:\\x \xC3\xA4");
    shown("[ERROR] [VERBOSE] [SUP[SUPPORT]PORT][SUPPORT]", "(VERBOSE) [SUP(SUPPORT)PORT](SUPPORT)");
    shown("[  0.001] [SUPPORT] x", "(SUPPORT) x");
    shown(std::string(100000, 'x'), std::string(65536, 'x') + "... (100000 characters)");
    child.terminate(true);
    ASSERT_TRUE(child.start({"say", "", hex("[VERBOSE] \x1B [SUPPORT]\n")}));
    log.take();
    EXPECT_FALSE(receive(child));
    EXPECT_EQ(log.takeOne(), "[SUBPROCESS] (VERBOSE) \\x1B (SUPPORT)");
}

TEST(ProcessPacketReader, ErrorsDoNotWaitForTheLastPacket) {
    LogLines log;
    Child child;
    ASSERT_TRUE(child.start({"say", hex("PKTB16[0100000000000000]\nPKTB16[0200000000000000]\n"), hex("why\n")}));
    child.finish();
    log.take();
    ASSERT_TRUE(child.getPacketReader()->read());
    EXPECT_EQ(log.takeOne(), "[SUBPROCESS] why");
    EXPECT_TRUE(child.getPacketReader()->read());
}

// It ends when its input does.
TEST(ProcessPacketReader, DoesNotWaitForProcessesThatTheChildLeavesBehind) {
    Child child;
    ASSERT_TRUE(child.start({"leave", childProgram}));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(child.getPacketReader()->readTimeout(0xFFFFFFFF, watchdog));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(watchdog / 2));
    EXPECT_EQ(child.exit_status(), 0);
}

// Of the first sizes, several fit the buffers of 1 MiB, and some line ends are at their borders.
TEST(ProcessPacketChannel, PacketsOfAllSizesComeBackAsTheyWere) {
    for (const char* how : {"echo", "echo-ahead"}) {
        Child child;
        ASSERT_TRUE(child.start({how, "1000000"}));
        for (const unsigned size : {0u, 1u, 1000u, 65536u, 524275u, 524276u, 524277u, 524280u, 524288u, 2u << 20, 7u}) {
            const auto packet = packetOf(size);
            send(child, packet);
            const auto back = receive(child);
            ASSERT_TRUE(back);
            EXPECT_TRUE(isSame(*back, *packet)) << size;
        }
        const auto largest = packetOf(16777215);
        send(child, largest);
        const auto back = receive(child);
        ASSERT_TRUE(back);
        EXPECT_TRUE(isSame(*back, *largest));
        child.close_stdin();
        EXPECT_FALSE(receive(child));
        EXPECT_EQ(child.exit_status(), 5);
    }
}

// Everything is sent before anything is read: the child stops at its full output, and so does what goes to it.
TEST(ProcessPacketChannel, FullPipesOnBothSidesAreNoDeadlock) {
    for (const char* how : {"echo", "echo-ahead"}) {
        Child child;
        ASSERT_TRUE(child.start({how, "1000000"}));
        for (short i = 0; i < 200; ++i) send(child, packetOf(65536u + static_cast<unsigned>(i), i));
        for (short i = 0; i < 200; ++i) {
            const auto back = receive(child);
            ASSERT_TRUE(back);
            ASSERT_EQ(back->getPort(), i);
            ASSERT_EQ(back->getPayloadSize(), 65536u + static_cast<unsigned>(i));
        }
    }
}

// The child leaves while its reader waits for more, resp. for room.
TEST(ProcessPacketChannel, AReaderAheadEndsWithInputOpenAndWithInputLeft) {
    for (const short left : {short{0}, short{100}}) {
        Child child;
        ASSERT_TRUE(child.start({"echo-ahead", "1"}));
        for (short i = 0; i <= left; ++i) send(child, packetOf(30000, i));
        ASSERT_TRUE(receive(child));
        EXPECT_FALSE(receive(child));
        EXPECT_EQ(child.exit_status(), 5);
    }
}

TEST(ProcessPacketWriter, APortIsSetOnTheWayAndNotInThePacket) {
    Child child;
    ASSERT_TRUE(child.start({"echo"}));
    const auto packet = packetOf(3, 4);
    const auto sentPort = [&] {
        send(child, packet);
        EXPECT_EQ(packet->getPort(), 4);
        const auto back = receive(child);
        return back ? int{back->getPort()} : -1;
    };
    EXPECT_EQ(sentPort(), 4);
    child.getPacketWriter()->setPort(-2);
    EXPECT_EQ(sentPort(), -2);
    child.getPacketWriter()->disablePort();
    EXPECT_EQ(sentPort(), 4);
}

TEST(ProcessPacketWriter, WhatNobodyTakesIsDropped) {
    LogLines log;
    Child child;
    EXPECT_FALSE(child.getPacketWriter()->valid());
    send(child, packetOf(1));
    ASSERT_TRUE(child.start({"stay"}));
    EXPECT_TRUE(child.getPacketWriter()->valid());
    log.take();
    const auto packet = packetOf(4 << 20);
    for (int i = 0; i < 12; ++i) send(child, packet);
    const std::string complaint = log.takeOne();
    EXPECT_TRUE(complaint.starts_with("[PROCESS] ") && complaint.find("AND") == complaint.npos) << complaint;
    send(child, makeObject<Packet>(16777216u));
    EXPECT_EQ(log.takeOne(), "failed writing packet unrealistic payloadSize=16777216");

    ASSERT_TRUE(child.start({"stay"}) || child.terminate(true));
    log.take();
    EXPECT_FALSE(child.getPacketWriter()->valid());
    send(child, packet);
    EXPECT_FALSE(receive(child));
    EXPECT_EQ(log.takeOne(), "");
    // The next child has nothing of what was left.
    ASSERT_TRUE(child.start({"echo"}));
    send(child, packetOf(2, 9));
    const auto back = receive(child);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->getPort(), 9);
}

TEST(ProcessPacketChannel, EndsThatAreKeptOutliveTheProcess) {
    auto child = std::make_unique<Child>();
    const SmartPointer<ProcessPacketReader> reader = child->getPacketReader();
    const SmartPointer<ProcessPacketWriter> writer = child->getPacketWriter();
    ASSERT_TRUE(child->start({"echo"}));
    writer->write(packetOf(3).get());
    child.reset();
    EXPECT_FALSE(reader->valid() || writer->valid());
    EXPECT_FALSE(reader->readTimeout(0xFFFFFFFF, 1));
    writer->write(packetOf(3).get());
}

TEST(ProcessPacketReader, IsInvalidatedUntilTheNextSpawn) {
    Child child;
    ASSERT_TRUE(child.start({"say", hex("PKTB16[0100000000000000]\n"), ""}));
    child.finish();
    child.getPacketReader()->invalidate();
    EXPECT_FALSE(child.getPacketReader()->valid() || receive(child));
    ASSERT_TRUE(child.start({"say", hex("PKTB16[0200000000000000]\n"), ""}));
    const auto packet = receive(child);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->getPort(), 2);
}

TEST(ProcessPacketReader, WaitsAsLongAsTheClockSaysOrUntilTheChildHasEnded) {
    ManualClock clock(0xFFFFFF00); // the 32-bit count wraps meanwhile
    Child child;
    EXPECT_FALSE(child.getPacketReader()->readTimeout(0xFFFFFFFF, 1)); // there is none
    ASSERT_TRUE(child.start({"wait"}));
    EXPECT_FALSE(child.getPacketReader()->readTimeout(0, 0xFFFFFFFF));
    EXPECT_FALSE(child.getPacketReader()->read());
    EXPECT_EQ(clock.getMilliseconds(), 0xFFFFFF00);

    std::atomic<bool> isDone{false};
    std::thread hand([&] {
        while (!isDone) clock.advance(1), std::this_thread::yield();
    });
    EXPECT_FALSE(child.getPacketReader()->readTimeout(500, 1));
    isDone = true;
    hand.join();
    EXPECT_GE(clock.getMilliseconds(), 0xFFFFFF00 + 500);
    EXPECT_EQ(child.exit_status(), Process::stillActive);

    child.close_stdin();
    EXPECT_FALSE(child.getPacketReader()->readTimeout(0xFFFFFFFF, 1000));
    EXPECT_EQ(child.exit_status(), 0);
}

} // namespace
} // namespace kiv
