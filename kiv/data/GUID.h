#pragma once

#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace kivSq {
class Object;
}

namespace kiv {

// A 256-bit identifier: four 64-bit words, the least significant first, so that bit i is bit i % 64 of word i / 64.
// A plain value of 32 bytes. Its order is numeric, most significant word first; its text is the bytes as stored, so the
// order of texts is not the order of identifiers.
class KIV_API GUID {
public:
    static const char* getStaticClassName() { return "GUID"; }
    // Reads 64 hexadecimal digits of either case, and nothing else, into `out`; false leaves it unchanged.
    static bool fromString(std::string_view text, GUID& out);
    // Defined in script/.
    static void bindSqVM(kivSq::Object* scriptClass);

    // The null identifier.
    constexpr GUID() = default;
    constexpr GUID(uint64_t word0, uint64_t word1, uint64_t word2, uint64_t word3)
        : m_words{word0, word1, word2, word3} {}

    // Requires: index < 4.
    constexpr uint64_t getWord(unsigned index) const { return m_words[index]; }
    constexpr bool isNull() const { return (m_words[0] | m_words[1] | m_words[2] | m_words[3]) == 0; }
    // The 32 bytes in storage order.
    const uint8_t* getBytePointer() const { return reinterpret_cast<const uint8_t*>(m_words); }
    uint8_t* getBytePointer() { return reinterpret_cast<uint8_t*>(m_words); }
    // 64 upper-case hexadecimal digits of the bytes in storage order.
    String toString() const;
    // A short pronounceable name for logs and user interfaces, one of about two thousand; the null identifier's is
    // "god".
    std::string getFantasyName() const;

    friend constexpr bool operator==(const GUID& a, const GUID& b) = default;
    friend constexpr std::strong_ordering operator<=>(const GUID& a, const GUID& b) {
        for (unsigned i = 3; i > 0; --i) {
            if (a.m_words[i] != b.m_words[i]) return a.m_words[i] <=> b.m_words[i];
        }
        return a.m_words[0] <=> b.m_words[0];
    }

private:
    uint64_t m_words[4] = {0, 0, 0, 0};
};

// The stream form is toString(); the reader takes 64 digits of either case and sets the fail bit otherwise.
KIV_API std::ostream& operator<<(std::ostream& stream, const GUID& guid);
KIV_API std::istream& operator>>(std::istream& stream, GUID& guid);

} // namespace kiv
