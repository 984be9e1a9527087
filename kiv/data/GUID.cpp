#include "kiv/data/GUID.h"

#include "kiv/core/Codecs.h"
#include "kiv/core/Fnv.h"

#include <istream>
#include <ostream>
#include <string>

namespace kiv {

static_assert(sizeof(GUID) == 32);

namespace {

constexpr size_t textSize = 64;

// The empty ones make names of two parts.
constexpr const char* nameStarts[8] = {"wet", "bel", "nar", "xan", "bell", "latr", "ev", ""};
constexpr const char* nameMiddles[16] = {"adur",  "aes",  "anim", "apoll", "imac", "educ", "equis", "extr",
                                         "guius", "hann", "equi", "amora", "hum",  "iace", "ille",  "opu"};
constexpr const char* nameEnds[16] = {"",   "us",   "ix",   "ox",  "ith",  "ath",  "um", "ator",
                                      "or", "axia", "imus", "ais", "itur", "orex", "o",  "y"};

} // namespace

bool GUID::fromString(std::string_view text, GUID& out) {
    GUID parsed;
    if (text.size() != textSize || !internal::decodeBase16(text.data(), text.size(), parsed.getBytePointer()))
        return false;
    out = parsed;
    return true;
}

String GUID::toString() const {
    char text[textSize];
    internal::encodeBase16(getBytePointer(), sizeof(m_words), text);
    return String(text, textSize);
}

std::string GUID::getFantasyName() const {
    if (isNull()) return "god";
    const uint32_t hash = internal::fnv1a32(getBytePointer(), sizeof(m_words));
    return std::string(nameStarts[hash & 7]) + nameMiddles[(hash >> 3) & 15] + nameEnds[(hash >> 7) & 15];
}

std::ostream& operator<<(std::ostream& stream, const GUID& guid) {
    return stream << guid.toString().c_str();
}

std::istream& operator>>(std::istream& stream, GUID& guid) {
    std::string text;
    const std::istream::sentry sentry(stream);
    for (int next = sentry ? stream.peek() : -1; next != -1 && text.size() < textSize; next = stream.peek()) {
        text.push_back(static_cast<char>(stream.get()));
    }
    if (!GUID::fromString(text, guid)) stream.setstate(std::ios_base::failbit);
    return stream;
}

} // namespace kiv
