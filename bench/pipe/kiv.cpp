#include "Pipe.h"
#include "kiv/data/StdInPacketReader.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/process/Process.h"
#include "kiv/process/ProcessPacketReader.h"
#include "kiv/process/ProcessPacketWriter.h"

namespace {

using namespace kiv;

SmartPointer<Packet> packetOf(size_t payloadSize) {
    auto packet = makeObject<Packet>(static_cast<unsigned>(payloadSize));
    for (size_t i = 0; i < payloadSize; ++i) packet->getPayloadPointer()[i] = static_cast<uint8_t>(i * 7);
    return packet;
}

void write(size_t payloadSize, size_t count) {
    StdOutPacketWriter writer;
    const auto packet = packetOf(payloadSize);
    for (size_t i = 0; i < count; ++i) writer.write(packet.get());
}

constexpr size_t window = size_t{4} << 20;

// Takes all packets and answers each window of them with one.
void answer(size_t payloadSize, size_t count) {
    StdInPacketReader reader;
    StdOutPacketWriter writer;
    for (size_t i = 1; i <= count && reader.read(); ++i) {
        if (i * payloadSize % window == 0) writer.write(packetOf(0).get());
    }
}

bool start(Process& process, const char* writer, size_t payloadSize) {
    const String program = bench::thisProgram();
    return process.spawn(program, {program, writer, std::to_string(payloadSize)}, nullptr, false);
}

size_t read(size_t payloadSize) {
    Process process;
    if (!start(process, "kiv", payloadSize)) return 0;
    size_t count = 0;
    while (const auto packet = process.getPacketReader()->readTimeout(10000, 10))
        count += packet->getPayloadSize() == payloadSize;
    return count;
}

// Two windows at most are under way, so that nothing gets too much for the process's buffer.
size_t send(size_t payloadSize) {
    Process process;
    if (!start(process, "kiv-answer", payloadSize)) return 0;
    const auto packet = packetOf(payloadSize);
    const size_t windows = bench::bytesARun / window;
    size_t answered = 0;
    for (size_t i = 0; i < windows; ++i) {
        for (size_t sent = 0; sent < window; sent += payloadSize) process.getPacketWriter()->write(packet.get());
        if (i > 0 && process.getPacketReader()->readTimeout(10000, 10)) ++answered;
    }
    if (process.getPacketReader()->readTimeout(10000, 10)) ++answered;
    return answered * (window / payloadSize);
}

const bench::Writer writer("kiv", write), answerer("kiv-answer", answer);
const bench::Contestant fromChild("from-child", "kiv", read), toChild("to-child", "kiv", send);

} // namespace
