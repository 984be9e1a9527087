#include "kiv/core/Signature.h"

#include "kiv/platform/Random.h"

#include <sodium.h>

#include <stdexcept>

namespace kiv {

namespace {

// Neither hashes nor signatures use what sodium_init() sets up: random numbers, and the choice of vector code.

// What the library signs with: the secret key and the public one. Nothing of it stays in memory.
struct KeyPair {
    explicit KeyPair(const Signature::SecretKey& key) {
        crypto_sign_seed_keypair(publicKey.data(), secret.data(), key.data());
    }
    KeyPair(const KeyPair&) = delete;
    KeyPair& operator=(const KeyPair&) = delete;
    ~KeyPair() { sodium_memzero(secret.data(), secret.size()); }

    Signature::PublicKey publicKey;
    std::array<uint8_t, crypto_sign_SECRETKEYBYTES> secret;
};

static_assert(std::tuple_size_v<Signature::Bytes> == crypto_sign_BYTES);
static_assert(std::tuple_size_v<Signature::PublicKey> == crypto_sign_PUBLICKEYBYTES);
static_assert(std::tuple_size_v<Signature::SecretKey> == crypto_sign_SEEDBYTES);

} // namespace

Signature::SecretKey Signature::createSecretKey() {
    SecretKey key;
    if (!platform::systemRandomBytes(key.data(), key.size()))
        throw std::runtime_error("the system has no random bytes");
    return key;
}

Signature::PublicKey Signature::getPublicKey(const SecretKey& key) {
    return KeyPair(key).publicKey;
}

Signature::Bytes Signature::sign(const ConstByteSpan& bytes, const SecretKey& key) {
    Bytes signature;
    const KeyPair pair(key);
    crypto_sign_detached(signature.data(), nullptr, bytes.getBytePointer(), bytes.getSize(), pair.secret.data());
    return signature;
}

bool Signature::verify(const Bytes& signature, const ConstByteSpan& bytes, const PublicKey& key) {
    return crypto_sign_verify_detached(signature.data(), bytes.getBytePointer(), bytes.getSize(), key.data()) == 0;
}

} // namespace kiv
