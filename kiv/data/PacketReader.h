#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/data/Packet.h"
#include "kiv/platform/Compiler.h"

namespace kiv {

// A source of packets. What it yields is raw: the caller fits it to its scheme. Failures are logged; a reader never
// throws. One thread at a time.
class KIV_API PacketReader : public Object {
    KIV_OBJECT(PacketReader, Object)
public:
    // False once nothing more will come.
    virtual bool valid();
    // Null when nothing could be read.
    virtual SmartPointer<Packet> read() = 0;
    // Readers that can wait do so for at most `timeout` milliseconds, looking every `interval`. This one just reads.
    virtual SmartPointer<Packet> readTimeout(unsigned timeout, unsigned interval);
};

} // namespace kiv
