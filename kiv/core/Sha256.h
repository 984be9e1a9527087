#pragma once

#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/platform/Compiler.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace kiv {

// SHA-256 of bytes that come in pieces. A plain value; one thread at a time.
class KIV_API Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    Sha256();

    void add(const void* bytes, size_t size);
    // Of all that was added; the next one begins anew.
    Digest finish();

    // 64 hexadecimal digits, of lower case; both cases are read.
    static String toText(const Digest& digest);
    // False, and `out` as it was, when the text is none.
    static bool fromText(TextArg text, Digest& out);

private:
    alignas(uint64_t) uint8_t m_state[104];
};

} // namespace kiv
