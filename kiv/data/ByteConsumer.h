#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>

namespace kiv {

// Takes bytes piece by piece, in order. The pieces are valid during the call only.
class KIV_API ByteConsumer {
public:
    ByteConsumer() = default;
    ByteConsumer(const ByteConsumer&) = default;
    ByteConsumer& operator=(const ByteConsumer&) = default;
    virtual ~ByteConsumer();

    virtual void consume(const uint8_t* bytes, unsigned size) = 0;
};

} // namespace kiv
