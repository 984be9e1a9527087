#pragma once

#include "kiv/kivCore.h"

// One reading of the gauge: what is sent, and what is kept.
struct ReadingScheme : kiv::PacketScheme {
    ReadingScheme() : PacketScheme(1000, "Tides", nullptr, "Reading") {}

    const Field id = Table();
    const NumberField<int32_t> hour = Number<int32_t>("hour");
    const NumberField<int32_t> level = Number<int32_t>("level"); // centimetres
};
inline const ReadingScheme readingScheme;

inline kiv::SmartPointer<kiv::Packet> makeReading(int hour, int level) {
    auto reading = kiv::makeObject<kiv::Packet>(&readingScheme, short{0});
    reading->set(readingScheme.hour, hour);
    reading->set(readingScheme.level, level);
    return reading;
}

// The readings that are kept.
class Readings : public kiv::Table {
    KIV_OBJECT(Readings, kiv::Table)
public:
    explicit Readings(const kiv::Item& root) : Table(root) { createTable(); }

    // The key of the new entry.
    kiv::Item add(const kiv::Packet& reading) {
        kiv::Item key;
        kiv::String error;
        if (createEntry(key, error))
            key.storePacket(&reading);
        else
            kiv::logging::MessageStream(3, 2) << "[TIDES] a reading is lost: " << error;
        return key;
    }

    int count() const {
        int count = 0;
        kiv::Item key;
        for (bool more = getRoot().child(key); more; more = key.next()) ++count;
        return count;
    }
};
