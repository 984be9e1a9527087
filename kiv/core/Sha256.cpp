#include "kiv/core/Sha256.h"

#include "kiv/core/Codecs.h"

#include <sodium.h>

#include <new>

namespace kiv {

namespace {

using State = crypto_hash_sha256_state;

State* stateIn(uint8_t* bytes) {
    return std::launder(reinterpret_cast<State*>(bytes));
}

} // namespace

Sha256::Sha256() {
    static_assert(sizeof m_state == sizeof(State) && alignof(State) <= alignof(uint64_t));
    static_assert(std::tuple_size_v<Digest> == crypto_hash_sha256_BYTES);
    crypto_hash_sha256_init(new (m_state) State);
}

void Sha256::add(const void* bytes, size_t size) {
    crypto_hash_sha256_update(stateIn(m_state), static_cast<const uint8_t*>(bytes), size);
}

Sha256::Digest Sha256::finish() {
    Digest digest;
    crypto_hash_sha256_final(stateIn(m_state), digest.data());
    crypto_hash_sha256_init(stateIn(m_state));
    return digest;
}

String Sha256::toText(const Digest& digest) {
    char text[2 * std::tuple_size_v<Digest> + 1];
    sodium_bin2hex(text, sizeof text, digest.data(), digest.size());
    return String(text);
}

bool Sha256::fromText(TextArg text, Digest& out) {
    if (text.size() != 2 * out.size()) return false;
    Digest read;
    if (!internal::decodeBase16(text.data(), text.size(), read.data())) return false;
    out = read;
    return true;
}

} // namespace kiv
