#include "Silence.h"

#include "kiv/data/Packet.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using namespace kiv;

// Three bytes of the input declare one element.
struct RandomScheme : PacketScheme {
    RandomScheme(const uint8_t* bytes, unsigned elements) : PacketScheme(40, nullptr, nullptr, "Random") {
        for (unsigned i = 0; i < elements; ++i, bytes += 3) declare(std::to_string(i), bytes[0], bytes[1], bytes[2]);
    }

    void declare(const std::string& name, uint8_t kind, unsigned count, uint8_t value) {
        const UpTo upTo(count == 255 ? 0xFFFFFFFF : count);
        const char text[] = {'t', 0};
        if (kind & 0x80) NextVersion();
        if (kind & 0x40) Cargo(count);
        switch (kind % 10) {
        case 0:
            String(name.c_str(), count, value ? text : nullptr);
            break;
        case 1:
            String(name.c_str(), upTo, value ? text : nullptr);
            break;
        case 2:
            Buffer(name.c_str(), count);
            break;
        case 3:
            Buffer(name.c_str(), upTo);
            break;
        case 4:
            Item(name.c_str(), count);
            break;
        case 5:
            Item(name.c_str(), upTo);
            break;
        case 6:
            Numbers<int16_t>(name.c_str(), count, value);
            break;
        case 7:
            Numbers<double>(name.c_str(), upTo);
            break;
        case 8:
            addElement(name.c_str(), upTo, value, nullptr);
            break;
        default:
            addElement(name.c_str(), count, value, nullptr);
        }
    }
};

// Reads every byte a reader gives out.
void readFields(const Packet& packet) {
    unsigned sum = packet.getCargoString().size() & 1;
    Vector<String> texts;
    for (const PacketElement& element : packet.getScheme()->getElements()) {
        const PacketField field(&element);
        for (const unsigned index : {0u, 1u, 0xFFFFFFFFu})
            sum += static_cast<unsigned>(packet.getInteger(field, index));
        sum += packet.getFloat(element.name) > 0;
        sum += static_cast<unsigned>(String(packet.getString(field)).size());
        packet.getStringList(field, texts);
        sum += packet.getItem(field).asString().size() & 1;
        for (const uint8_t byte : packet.getByteSpan(field)) sum += byte;
    }
    if (sum == 0xDEADBEEF) std::abort();
}

std::vector<uint8_t> payloadOf(const Packet& packet) {
    std::vector<uint8_t> bytes(packet.getPayloadSize());
    packet.copyPayloadTo(bytes.data());
    return bytes;
}

} // namespace

// A payload against a scheme, both from the input. What fits is written and fitted again to the same bytes, before and
// after all its values were set to what they are.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size < 2 + data[0] % 16 * size_t{3}) return 0;
    const unsigned elements = data[0] % 16;
    const RandomScheme scheme(data + 2, elements);
    const short flags = data[1] & 1 ? Packet::VersionedFlag : 0;
    const std::vector<uint8_t> bytes(data + 2 + elements * 3, data + size);
    Packet packet(static_cast<unsigned>(bytes.size()), bytes.data(), nullptr);
    packet.setID(1);
    packet.setFlags(flags);
    if (!packet.fit(&scheme)) return 0;
    readFields(packet);
    const std::vector<uint8_t> written = payloadOf(packet);
    Packet copy(packet);
    for (Packet* each : {&copy, &packet}) {
        for (const PacketElement& element : scheme.getElements()) {
            const PacketField field(&element);
            if (element.isInteger()) each->setInteger(field, each->getInteger(field));
            if (element.hasBytes()) each->setBuffer(field, each->getByteSpan(field));
        }
        if (payloadOf(*each) != written) std::abort();
    }
    if (!std::equal(bytes.begin(), bytes.end(), data + 2 + elements * 3)) std::abort(); // which it only borrowed
    Packet again(static_cast<unsigned>(written.size()), written.data(), nullptr);
    again.setID(1);
    again.setFlags(flags);
    if (!again.fit(&scheme) || payloadOf(again) != written) std::abort();
    return 0;
}
