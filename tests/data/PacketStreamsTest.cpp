// Hunts: records lost before damage, believed sizes, lines cut or joined at the borders of what a read returns, line
// ends of the other system, other output taken for packets, and packets lost in text mode.

#include "kiv/core/Clock.h"
#include "kiv/data/DequePacketWriter.h"
#include "kiv/data/FilePacketReader.h"
#include "kiv/data/FilePacketWriter.h"
#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/platform/StandardInput.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/data/Packets.h"
#include "tests/support/TemporaryFolder.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace std::string_literals;

namespace kiv {
namespace {

class PacketFile : public testing::Test {
protected:
    void store(const std::string& bytes) const { m_folder.write("packets", bytes); }
    std::string load() const { return m_folder.read("packets"); }

    const support::TemporaryFolder m_folder;
    const std::string path = m_folder.utf8("packets");
};

// Three records of 13, 15 and 12 bytes.
std::string threeRecords() {
    return "\x01\0\0\0\x05\0\xFF\xFF\x02\0\0\0A"s + "\x03\0\0\0\0\0\0\0\x03\0\0\x01\n\r\x1A"s +
           "\0\0\0\0\0\0\0\0\x04\0\x02\0"s;
}

TEST_F(PacketFile, RecordsAreReadBackAndWrittenAgainByteForByte) {
    LogLines log;
    store(threeRecords());
    auto reader = makeObject<FilePacketReader>(path.c_str());
    DequePacketWriter queue;
    for (const uint64_t offset : {0u, 13u, 28u}) {
        EXPECT_FALSE(reader->atEnd());
        const auto packet = reader->readTimeout(0, 0);
        ASSERT_TRUE(packet && reader->getRecordOffset() == offset);
        queue.write(packet.get());
    }
    EXPECT_TRUE(reader->atEnd() && reader->getOffset() == 40 && log.takeOne().empty());
    EXPECT_FALSE(reader->read());
    EXPECT_EQ(log.takeOne(), "failed reading packet payloadSize");
    reader->close();
    EXPECT_TRUE(!reader->read() && reader->valid());

    const auto writer = makeObject<FilePacketWriter>(path.c_str());
    while (const auto packet = queue.fetch()) {
        packet->setFlushAfterThis(packet->getID() == 3);
        writer->write(packet.get());
        EXPECT_TRUE(packet->getID() != 3 || load() == threeRecords().substr(0, 28));
    }
    EXPECT_TRUE(writer->close());
    writer->write(makeObject<Packet>(1u).get()); // silent
    EXPECT_EQ(load(), threeRecords());
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(PacketFile, EveryShortReadHasItsMessageAndOffset) {
    LogLines log;
    const auto row = [&](const std::string& bytes, const std::string& message, uint64_t offset) {
        store(bytes);
        FilePacketReader reader(path.c_str());
        EXPECT_FALSE(reader.read());
        EXPECT_EQ(log.takeOne(), "failed reading " + message);
        EXPECT_EQ(reader.getOffset(), offset);
    };
    row("", "packet payloadSize", 0), row("\x01\0\0"s, "packet payloadSize", 3);
    row("\x01\0\0\0"s, "packet header", 4), row(threeRecords().substr(0, 11), "packet header", 11);
    row(threeRecords().substr(0, 12), "payload", 12);
    row("\xFF\xFF\xFF\0\0\0\0\0\0\0\0\0AB"s, "payload", 14); // the largest, which is not believed
    row("\xFF\xFF\xFF\xFF\0\0\0\0\0\0\0\0"s, "packet unrealistic payloadSize=4294967295", 0);

    // Of a record that is refused for its size only the size was taken.
    store("\0\0\0\x01"s + threeRecords());
    FilePacketReader reader(path.c_str());
    EXPECT_FALSE(reader.read());
    EXPECT_EQ(log.takeOne(), "failed reading packet unrealistic payloadSize=16777216");
    ASSERT_TRUE(reader.read());
    EXPECT_TRUE(reader.getRecordOffset() == 4 && reader.getOffset() == 17);
}

// Every single byte of a file is replaced by every value: the records before it are read, the file is read to its end
// or refused with one of the four texts.
TEST_F(PacketFile, NothingIsLostBeforeADamagedByte) {
    const std::string whole = threeRecords();
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const int value : {0, 1, 2, 13, 28, 127, 255}) {
            LogLines log;
            std::string bytes = whole;
            bytes[at] = static_cast<char>(value);
            store(bytes);
            FilePacketReader reader(path.c_str());
            size_t intact = 0;
            while (!reader.atEnd() && reader.read()) intact += reader.getOffset() <= at;
            EXPECT_EQ(intact, at < 13 ? 0u : at < 28 ? 1u : 2u);
            const std::string line = log.takeOne();
            EXPECT_TRUE(!line.empty() || (reader.atEnd() && reader.getOffset() == whole.size()));
            EXPECT_TRUE(line.empty() || line == "failed reading packet payloadSize" ||
                        line == "failed reading packet header" || line == "failed reading payload" ||
                        line.starts_with("failed reading packet unrealistic payloadSize="))
                << line;
        }
    }
}

TEST_F(PacketFile, NoFileIsNoPacketAndADirectoryIsNoFile) {
    LogLines log;
    FilePacketReader missing(path.c_str()), null(nullptr);
    FilePacketReader directory(std::filesystem::temp_directory_path().string().c_str());
    for (FilePacketReader* reader : {&missing, &directory, &null})
        EXPECT_TRUE(!reader->isOpen() && !reader->read() && reader->atEnd());
    EXPECT_EQ(log.takeOne(), "");
}

TEST_F(PacketFile, WhatNoReaderTakesIsNotWritten) {
    LogLines log;
    Packet packet(16777216u, nullptr, nullptr);
    FilePacketWriter file(path.c_str());
    StdOutPacketWriter lines;
    for (PacketWriter* writer : {static_cast<PacketWriter*>(&file), static_cast<PacketWriter*>(&lines)}) {
        writer->write(&packet);
        EXPECT_EQ(log.takeOne(), "failed writing packet unrealistic payloadSize=16777216");
    }
    file.write(nullptr);
    EXPECT_TRUE(file.close() && load().empty() && log.takeOne().empty());
}

TEST(DequePacketWriter, IsAQueueWithTwoEndsThatHoldsReferences) {
    DequePacketWriter queue;
    Packet* packets[3];
    for (short id = 0; id < 3; ++id) packets[id] = new Packet(0u), packets[id]->setID(id);
    queue.write(packets[1]), queue.write(packets[2]), queue.push_front(packets[0]), queue.write(nullptr);
    EXPECT_EQ(packets[0]->getReferenceCount(), 1);
    for (const int id : {0, 1, 2}) EXPECT_EQ(queue.fetch()->getID(), id);
    EXPECT_FALSE(queue.fetch());
}

TEST(StdOutPacketWriter, WritesALineOfItsOwnInOnePieceAndItsPort) {
    support::OutputCapture output;
    StdOutPacketWriter writer;
    Packet packet(1u, reinterpret_cast<const uint8_t*>("A"), nullptr);
    packet.setPort(3);
    writer.write(&packet);
    writer.setPort(-2);
    writer.write(&packet);
    EXPECT_EQ(packet.getPort(), -2);
    packet.setPort(4);
    writer.disablePort();
    writer.write(&packet);
    EXPECT_EQ(output.writes,
              (std::vector<std::string>{"\nPKTB16[030000000000000041]\n", "\nPKTB16[FEFF00000000000041]\n",
                                        "\nPKTB16[040000000000000041]\n"}));
}

// Standard input that waits for the test to give something, or comes to its end in pieces of a fixed size.
class Feed : public internal::InputSource {
public:
    Feed() = default;
    Feed(std::string text, size_t piece) : m_bytes(std::move(text)), m_piece(piece), m_hasEnded(true) {}
    ~Feed() override { internal::setStandardInputSource(m_previous); }

    void give(std::string_view bytes) {
        change([&] { m_bytes += bytes; });
    }
    void end() {
        change([&] { m_hasEnded = true; });
    }
    // Waits until so many bytes were read since the beginning.
    bool waitForRead(size_t size) {
        std::unique_lock lock(m_mutex);
        return m_condition.wait_for(lock, std::chrono::seconds(60), [&] { return m_read >= size; });
    }
    size_t countRead() {
        const std::lock_guard lock(m_mutex);
        return m_read;
    }

    size_t read(char* to, size_t size) override {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [&] { return m_read < m_bytes.size() || m_hasEnded; });
        const size_t count = m_bytes.copy(to, std::min(size, m_piece), m_read);
        m_read += count;
        m_condition.notify_all();
        return count;
    }

private:
    template <class Change>
    void change(Change change) {
        const std::lock_guard lock(m_mutex);
        change();
        m_condition.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::string m_bytes;
    const size_t m_piece = SIZE_MAX;
    size_t m_read = 0;
    bool m_hasEnded = false;
    internal::InputSource* const m_previous = internal::setStandardInputSource(this);
};

TEST(StdInPacketReader, PacketsAreFoundAmongOtherLinesHoweverTheyArrive) {
    const std::string text = "[  0.001] hello\r\n\nPKTB16[010000000000000041]\r\n\r\n\n"
                             "tab\there\nPKTB16[0100000000000000]\n PKTB16[0200000000000000]\nPKTB16[xyz]\n"
                             "PKTB16[030000000000000042434445]\nrest\n"
                             "PKTB16[01000000000"; // cut off
    for (const size_t piece : {1u, 2u, 3u, 7u, 19u, 1000u}) {
        LogLines log;
        Feed input(text, piece);
        StdInPacketReader reader;
        EXPECT_TRUE(reader.valid());
        std::string payloads;
        while (const auto packet = reader.read()) payloads += hexOf(*packet) + ";";
        EXPECT_EQ(payloads, "41;;42434445;");
        EXPECT_FALSE(reader.valid() || reader.read());
        EXPECT_EQ(log.take(),
                  (std::vector<std::string>{"[STDINPACKET][  0.001] hello", "[STDINPACKET]tab\\there",
                                            "[STDINPACKET] PKTB16[0200000000000000]", "corrupt base16 packet encoding",
                                            "[STDINPACKET]PKTB16[xyz]", "[STDINPACKET]rest",
                                            "corrupt base16 packet encoding", "[STDINPACKET]PKTB16[01000000000"}));
    }
}

TEST(StdInPacketReader, TheLargestPacketPassesAndALongerLineIsDroppedOnce) {
    LogLines log;
    const std::string digits(2 * 0xFFFFFF, '0');
    Feed input("PKTB16[0100000000000000" + digits + "0]\nPKTB16[0100000000000000" + digits + "]\r\nPKTB16[" + digits +
                   digits + "]\nPKTB16[0200000000000000]\nPKTB16[0100000000000000" + digits + "0]",
               60000);
    StdInPacketReader reader;
    const auto largest = reader.read();
    ASSERT_TRUE(largest);
    EXPECT_EQ(largest->getPayloadSize(), 0xFFFFFFu);
    const auto last = reader.read();
    ASSERT_TRUE(last);
    EXPECT_EQ(last->getPort(), 2);
    EXPECT_FALSE(reader.read());
    EXPECT_EQ(log.take(), (std::vector<std::string>(3, "[STDINPACKET]line too long, dropped")));
}

class StdInPacketReaderAhead : public testing::Test {
protected:
    ~StdInPacketReaderAhead() override { feed.end(); }

    // The port of the next packet; -1 when the input ends before.
    int nextPort() {
        const auto packet = reader.readTimeout(60000, 60000);
        return packet ? packet->getPort() : -1;
    }

    const SmartPointer<ThreadPool> m_pool = makeObject<ThreadPool>();
    Feed feed;
    StdInPacketReader reader;
};

TEST_F(StdInPacketReaderAhead, GivesPacketsAsTheyComeAndNeverWaits) {
    LogLines log;
    feed.give("PKTB16[0100000000000000]\r\nPKTB16[0200000000000000]\n");
    EXPECT_EQ(nextPort(), 1); // still waiting for input
    reader.disableBlocking();
    reader.disableBlocking();
    EXPECT_TRUE(nextPort() == 2 && reader.valid() && !reader.read());
    feed.give("text\n\nPKTB16[03000000");
    ASSERT_TRUE(feed.waitForRead(72));
    EXPECT_TRUE(reader.valid() && !reader.read());
    feed.give("00000000]\nPKTB16[0400000000000000]");
    EXPECT_TRUE(nextPort() == 3 && reader.valid() && !reader.read());
    feed.end();
    EXPECT_TRUE(nextPort() == 4 && nextPort() == -1);
    EXPECT_FALSE(reader.valid() || reader.read());
    EXPECT_EQ(log.takeOne(), "[STDINPACKET]text");
}

TEST_F(StdInPacketReaderAhead, WaitsAsLongAsTheClockSaysOrUntilAPacketOrTheEndComes) {
    LogLines log;
    ManualClock clock(0xFFFFFFF0); // the 32-bit count wraps meanwhile
    reader.disableBlocking();
    EXPECT_FALSE(reader.readTimeout(0, 0));
    std::atomic<bool> isDone{false};
    std::thread hand([&] {
        while (!isDone) clock.advance(1), std::this_thread::yield();
    });
    EXPECT_FALSE(reader.readTimeout(20, 0));
    isDone = true;
    hand.join();
    EXPECT_GE(clock.getMilliseconds(), 0xFFFFFFF0 + 20);

    // Once the first is read, a thread is at the next; the clock stands still.
    const auto laterBy = [&](size_t read, auto action) {
        return std::thread([this, read, action] { feed.waitForRead(read) ? action() : void(); });
    };
    const std::string line = "text\n", packet = "PKTB16[0100000000000000]\n";
    std::thread giver = laterBy(line.size(), [&] { feed.give(packet); });
    feed.give(line);
    EXPECT_EQ(nextPort(), 1);
    giver.join();
    std::thread ender = laterBy(line.size() + 2 * packet.size(), [&] { feed.end(); });
    feed.give(packet);
    const auto last = reader.readTimeout(0xFFFFFFFF, 0);
    ASSERT_TRUE(last);
    EXPECT_FALSE(reader.readTimeout(0xFFFFFFFF, 0));
    ender.join();
    EXPECT_FALSE(reader.valid() || reader.readTimeout(0xFFFFFFFF, 0));
}

TEST_F(StdInPacketReaderAhead, ReadsNoMoreThanAMegabyteAhead) {
    constexpr size_t most = (1 << 20) + 65536;
    std::string packets;
    constexpr int count = 30000; // of 103 bytes
    for (int i = 0; i < count; ++i) {
        Packet packet(39u);
        packet.setPort(static_cast<short>(i));
        std::memset(packet.getPayloadPointer(), i, 39);
        packet.appendBase16To(packets);
        packets += '\n';
    }
    feed.give(packets);
    reader.disableBlocking();
    ASSERT_TRUE(feed.waitForRead(1 << 20));
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(nextPort(), i);
        // What was taken out, what waits, and what was taken in beyond the packet.
        ASSERT_LE(feed.countRead(), static_cast<size_t>(i + 1) * 103 + 2 * most);
    }
    // It is destroyed while it waits for room.
    feed.give(packets);
    ASSERT_TRUE(feed.waitForRead(packets.size() + (1 << 20)));
    EXPECT_LE(feed.countRead(), packets.size() + most);
}

TEST(StdInPacketReader, WithoutAPoolItBlocksOn) {
    LogLines log;
    Feed input("PKTB16[0100000000000000]\n", 5);
    StdInPacketReader reader;
    reader.disableBlocking();
    EXPECT_EQ(log.takeOne(), "[ASSERT] [STDINPACKET]can't read in the background without a ThreadPool");
    EXPECT_TRUE(reader.read());
}

} // namespace
} // namespace kiv
