#include "Silence.h"

#include "kiv/data/FilePacketReader.h"
#include "kiv/data/PacketRecord.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

// The input is a packet file. Records that are read lie one behind the other in it, byte for byte.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path =
        (std::filesystem::temp_directory_path() / ("kiv-packets-" + std::to_string(std::random_device()()))).string();
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const auto reader = kiv::makeObject<kiv::FilePacketReader>(path.c_str());
    std::filesystem::remove(path); // its bytes stay as long as the file is open
    uint64_t offset = 0;
    while (!reader->atEnd()) {
        const auto packet = reader->read();
        if (!packet) break;
        constexpr size_t head = kiv::internal::packetRecordHead;
        const size_t payload = packet->getPayloadSize();
        if (reader->getRecordOffset() != offset || reader->getOffset() != offset + head + payload) std::abort();
        if (std::memcmp(data + offset + 4, &packet->rawHeader(), head - 4) != 0) std::abort();
        if (std::memcmp(data + offset + head, packet->getPayloadPointer(), payload) != 0) std::abort();
        offset += head + payload;
    }
    if (reader->getOffset() > size || reader->getOffset() < offset) std::abort();
    return 0;
}
