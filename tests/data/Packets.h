#pragma once

#include "kiv/data/Packet.h"
#include "tests/support/LogLines.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kiv {

using support::LogLines;

inline std::vector<uint8_t> payloadOf(const Packet& packet) {
    std::vector<uint8_t> bytes(packet.getPayloadSize());
    packet.copyPayloadTo(bytes.data());
    return bytes;
}

inline std::string hexOf(const Packet& packet) {
    const std::vector<uint8_t> bytes = payloadOf(packet);
    return String::encodeBase16FromBuffer({bytes.data(), static_cast<unsigned>(bytes.size())}).to_std_string();
}

// A raw packet of received bytes, given as hexadecimal digits.
inline SmartPointer<Packet> received(short id, short flags, const std::string& hex) {
    Buffer bytes;
    EXPECT_TRUE(String(hex).decodeBase16toBuffer(bytes));
    auto packet = makeObject<Packet>(bytes.getSize());
    if (bytes) std::memcpy(packet->getPayloadPointer(), bytes.getBytePointer(), bytes.getSize());
    packet->setID(id);
    packet->setFlags(flags);
    return packet;
}

inline SmartPointer<Packet> received(const Packet& packet) {
    return received(packet.getID(), packet.getFlags(), hexOf(packet));
}

// One record in the three forms it had over time, as three programs of different age know it. Their ids are equal.
struct OldScheme : PacketScheme {
    OldScheme() : PacketScheme(77, "Test", nullptr, "Record") {}
    const Field small = Number<uint8_t>("small", 9);
    const Field wide = Number<int32_t>("wide", -2);
    const Field name = String("name", UpTo(16));
};

struct NewScheme : OldScheme {
    NewScheme() {
        NextVersion();
        added = Numbers<uint16_t>("added", 2, 513);
        values = Numbers<double>("values", UpTo(4));
        note = String("note", UpTo(16), "none");
        blob = Buffer("blob", 3);
    }
    Field added, values, note, blob;
};

struct NewestScheme : NewScheme {
    NewestScheme() {
        NextVersion();
        last = Number<uint64_t>("last", 7);
        more = Buffer("more", UpTo(8));
        NextVersion();
    }
    Field last, more;
};

// The schemes share an id on purpose; what the registry says to that is not for these tests.
template <class Scheme>
const Scheme& quietly() {
    static const Scheme* const scheme = [] {
        LogLines ignored;
        return new Scheme;
    }();
    return *scheme;
}

} // namespace kiv
