#pragma once

#include "kiv/data/GUID.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>

namespace kiv {

// All identifiers with the same low bits: the base's, of which the first `offset` belong to the domain. Identifiers and
// domains within it put their own bits above. A plain value.
class KIV_API GUIDDomain {
public:
    static const char* getStaticClassName() { return "GUIDDomain"; }

    // All identifiers.
    GUIDDomain() = default;
    GUIDDomain(const GUID& base, unsigned offset) : m_base(base), m_offset(offset) {}

    const GUID& getBase() const { return m_base; }
    unsigned getOffset() const { return m_offset; }

    // The base with the bits of `n` set from bit `offset` on; bits past the last are lost.
    GUID createGUID(uint64_t n) const;
    // The n-th of 2^bits domains within. An n with more bits sets further ones above them.
    GUIDDomain selectSubDomain(unsigned bits, uint64_t n) const;

private:
    GUID m_base;
    uint32_t m_offset = 0;
};

} // namespace kiv
