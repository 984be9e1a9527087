#include "Silence.h"

#include "kiv/data/Packet.h"

#include <cstdlib>

// A text that is read as a packet is what the packet is written as, but for the case of its letters.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const std::string& each : {text, "PKTB16[" + text + "]"}) {
        const auto packet = kiv::Packet::createFromBase16String(each);
        if (packet && packet->convertToBase16String() != kiv::String(each).utf8_uppercase()) std::abort();
    }
    return 0;
}
