#pragma once

#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <mutex>

namespace kiv {

// Where the library takes its random numbers from: a uniform generator with 256 bits of state, seeded by the system.
// Good for names and jitter, not for secrets. Any thread may ask; what current() returns lives as long as it is
// installed. The first use throws std::runtime_error when the system has no random bytes.
class KIV_API Random {
public:
    // The installed source: the system's, unless a SeededRandom has taken its place.
    static Random& current();

    Random();
    Random(const Random&) = delete;
    Random& operator=(const Random&) = delete;
    virtual ~Random();

    virtual uint64_t randomUInt64();
    // The upper half of one randomUInt64().
    unsigned randomUInt() { return static_cast<unsigned>(randomUInt64() >> 32); }

protected:
    // The same numbers for the same seed, on every system.
    explicit Random(uint64_t seed);
    // Installs `random` and returns the one installed before.
    static Random* exchangeCurrent(Random* random);

private:
    std::mutex m_mutex;
    uint64_t m_state[4]; // guarded by m_mutex
};

// Repeatable numbers. It is the current source while it lives; several nest like scopes.
class KIV_API SeededRandom : public Random {
public:
    explicit SeededRandom(uint64_t seed);
    ~SeededRandom() override;

private:
    Random* m_previous;
};

} // namespace kiv
