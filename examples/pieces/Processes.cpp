#include "Pieces.h"

#include "kiv/data/Packet.h"
#include "kiv/data/StdOutPacketWriter.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/CommandLine.h"
#include "kiv/process/Process.h"
#include "kiv/process/ProcessPacketReader.h"

#include <iostream>

namespace {

struct ReadingScheme : kiv::PacketScheme {
    ReadingScheme() : PacketScheme(41, "Pieces", nullptr, "Reading") {}

    const Field degrees = Number<double>("degrees");
};

} // namespace

void beChild() {
    kiv::logging::g_hideTimeInConsole = true;
    kiv::logging::MessageStream(2, 2) << "[LENS] is dirty";
    const ReadingScheme scheme;
    const auto packet = kiv::makeObject<kiv::Packet>(&scheme, short{0});
    packet->setFloat(scheme.degrees, 36.5);
    kiv::makeObject<kiv::StdOutPacketWriter>()->write(packet.get());
}

void showProcesses() {
    kiv::logging::g_hideVerboseOutputInConsole = true;
    const ReadingScheme scheme;
    const auto process = kiv::makeObject<kiv::Process>();
    const kiv::String program = kiv::platform::programPath();
    process->spawn(program, {program, "child"}, nullptr, false);
    kiv::ProcessPacketReader* reader = process->getPacketReader();
    while (reader->valid()) {
        const kiv::SmartPointer<kiv::Packet> packet = reader->readTimeout(10000, 10);
        if (packet && packet->fit(&scheme)) std::cout << packet->getFloat(scheme.degrees) << " degrees\n";
    }
    std::cout << "it ended with " << process->exit_status() << '\n';
}
