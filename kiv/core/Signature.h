#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/platform/Compiler.h"

#include <array>
#include <cstdint>

namespace kiv {

// Ed25519 signatures: what was signed with a secret key can be told by the public one, and nobody else can make it.
// Any thread.
class KIV_API Signature {
public:
    using Bytes = std::array<uint8_t, 64>;
    using PublicKey = std::array<uint8_t, 32>;
    using SecretKey = std::array<uint8_t, 32>; // the public one follows from it

    // Throws std::runtime_error when the system has no random bytes.
    static SecretKey createSecretKey();
    static PublicKey getPublicKey(const SecretKey& key);
    // The same for the same bytes and key.
    static Bytes sign(const ConstByteSpan& bytes, const SecretKey& key);
    static bool verify(const Bytes& signature, const ConstByteSpan& bytes, const PublicKey& key);
};

} // namespace kiv
