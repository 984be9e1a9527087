#include "kiv/core/Random.h"

#include "kiv/platform/Random.h"

#include <atomic>
#include <bit>
#include <stdexcept>

namespace kiv {
namespace {

std::atomic<Random*>& installed() {
    static Random& system = *new Random;
    static std::atomic<Random*> random{&system};
    return random;
}

} // namespace

Random& Random::current() {
    return *installed().load(std::memory_order_acquire);
}

Random* Random::exchangeCurrent(Random* random) {
    return installed().exchange(random);
}

// The one state that the generator never leaves, all zero, is as likely as guessing another system's: it is left out.
Random::Random() {
    do {
        if (!platform::systemRandomBytes(m_state, sizeof(m_state)))
            throw std::runtime_error("the system has no random bytes");
    } while ((m_state[0] | m_state[1] | m_state[2] | m_state[3]) == 0);
}

// SplitMix64 spreads the seed over the state, so that neighbouring seeds have nothing in common.
Random::Random(uint64_t seed) {
    for (uint64_t& word : m_state) {
        uint64_t bits = seed += 0x9E3779B97F4A7C15;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
        word = bits ^ (bits >> 31);
    }
}

Random::~Random() = default;

// xoshiro256++: 256 bits of state let every 256-bit name occur, and every word is uniform.
uint64_t Random::randomUInt64() {
    const std::lock_guard lock(m_mutex);
    uint64_t* s = m_state;
    const uint64_t result = std::rotl(s[0] + s[3], 23) + s[0];
    const uint64_t shifted = s[1] << 17;
    s[2] ^= s[0];
    s[3] ^= s[1];
    s[1] ^= s[2];
    s[0] ^= s[3];
    s[2] ^= shifted;
    s[3] = std::rotl(s[3], 45);
    return result;
}

SeededRandom::SeededRandom(uint64_t seed) : Random(seed), m_previous(exchangeCurrent(this)) {}

SeededRandom::~SeededRandom() {
    exchangeCurrent(m_previous);
}

} // namespace kiv
