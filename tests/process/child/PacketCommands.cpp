#include "tests/process/child/PacketCommands.h"

#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/process/Process.h"
#include "kiv/tasks/ThreadPool.h"
#include "tests/process/child/Jobs.h"
#include "tests/support/ProgramState.h"

#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

namespace {

using namespace kiv;

void sayBytes(std::FILE* stream, const std::string& digits) {
    Buffer bytes;
    if (!String(digits).decodeBase16toBuffer(bytes)) std::abort();
    std::fwrite(bytes.getBytePointer(), 1, bytes.getSize(), stream);
    std::fflush(stream);
}

// Says the two texts on the two streams and is gone.
int sayAndDie(const std::string& output, const std::string& errors) {
    sayBytes(stdout, output);
    sayBytes(stderr, errors);
    std::_Exit(3);
}

int flood(size_t megabytes) {
    const std::string megabyte(size_t{1} << 20, 'x');
    for (size_t i = 0; i < megabytes; ++i) std::fwrite(megabyte.data(), 1, megabyte.size(), stdout);
    StdOutPacketWriter().write(makeObject<Packet>(5u, reinterpret_cast<const uint8_t*>("after"), nullptr).get());
    return 0;
}

// Sends back every packet, without waiting for them on request; the last one may be left to be read.
int echo(bool isBlocking, size_t count) {
    const auto pool = makeObject<ThreadPool>();
    StdInPacketReader reader;
    if (!isBlocking) reader.disableBlocking();
    StdOutPacketWriter writer;
    for (; count > 0; --count) {
        const auto packet = reader.readTimeout(0xFFFFFFFF, 0);
        if (!packet) break;
        writer.write(packet.get());
    }
    return 5;
}

// Answers what nobody has asked for, and is gone.
int burst() {
    StdOutPacketWriter writer;
    for (uint32_t job = 0; job < 3000; ++job) writer.write(support::answerTo(*support::requestOf(job), 1).get());
    return 0;
}

// A worker that answers packets of a number each: with that number, its process identifier and as many bytes as follow
// from the number. With a seed it dies soon, at a random place of its work or at a random time.
class JobWorker {
public:
    explicit JobWorker(unsigned seed) : m_random(seed) {
        if (seed == 0) return;
        m_answersLeft = static_cast<unsigned>(m_random() % 20);
        m_way = static_cast<unsigned>(m_random() % 4);
        if (m_way == 3) std::thread(&JobWorker::dieAfter, std::chrono::microseconds(m_random() % 4000)).detach();
    }
    int run() {
        while (m_reader.valid()) {
            const auto request = m_reader.read();
            if (!request) continue;
            if (m_answersLeft == 0 && m_way == 0) support::die();
            const auto answer = support::answerTo(*request, Process::getCurrentProcessId());
            if (m_answersLeft == 0 && m_way == 1) sayHalf(*answer);
            m_writer.write(answer.get());
            if (m_answersLeft == 0 && m_way == 2) support::die();
            --m_answersLeft;
        }
        return 0;
    }

private:
    static void dieAfter(std::chrono::microseconds time) {
        std::this_thread::sleep_for(time);
        support::die();
    }
    static void sayHalf(const Packet& packet) {
        const std::string text = packet.convertToBase16String().to_std_string();
        std::fwrite(text.data(), 1, text.size() / 2, stdout);
        std::fflush(stdout);
        support::die();
    }

    std::mt19937 m_random;
    unsigned m_answersLeft = ~0u, m_way = 4;
    StdInPacketReader m_reader;
    StdOutPacketWriter m_writer;
};

} // namespace

int runWorker() {
    const char* seed = std::getenv("KIV_TEST_WORKER");
    if (seed && std::string(seed) == "burst") return burst();
    return seed ? JobWorker(static_cast<unsigned>(std::stoul(seed))).run() : 0;
}

std::optional<int> runPacketCommand(const std::string& command, const std::vector<std::string>& arguments) {
    if (command == "say") return sayAndDie(arguments.at(0), arguments.at(1));
    if (command == "flood-packet") return flood(std::stoul(arguments.at(0)));
    if (command == "echo") return echo(true, SIZE_MAX);
    if (command == "echo-ahead") return echo(false, std::stoul(arguments.at(0)));
    return std::nullopt;
}
