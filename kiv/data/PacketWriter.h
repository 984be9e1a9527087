#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/data/Packet.h"
#include "kiv/platform/Compiler.h"

namespace kiv {

// A sink of packets. Failures are logged. One thread at a time.
class KIV_API PacketWriter : public Object {
    KIV_OBJECT(PacketWriter, Object)
public:
    // False once nothing more is taken.
    virtual bool valid();
    // Takes a reference only where the class says so. Null is ignored.
    virtual void write(Packet* packet) = 0;

protected:
    // False, with a log line, for a payload that no reader of files and lines accepts.
    static bool isStreamable(const Packet& packet);
};

} // namespace kiv
