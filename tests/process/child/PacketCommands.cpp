#include "tests/process/child/PacketCommands.h"

#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/tasks/ThreadPool.h"

#include <cstdio>
#include <cstdlib>
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
    while (count > 0 && reader.valid()) {
        if (const auto packet = reader.read()) {
            writer.write(packet.get());
            --count;
        } else {
            std::this_thread::yield();
        }
    }
    return 5;
}

} // namespace

std::optional<int> runPacketCommand(const std::string& command, const std::vector<std::string>& arguments) {
    if (command == "say") return sayAndDie(arguments.at(0), arguments.at(1));
    if (command == "flood-packet") return flood(std::stoul(arguments.at(0)));
    if (command == "echo") return echo(true, SIZE_MAX);
    if (command == "echo-ahead") return echo(false, std::stoul(arguments.at(0)));
    return std::nullopt;
}
