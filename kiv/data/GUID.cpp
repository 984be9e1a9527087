#include "kiv/data/GUID.h"

#include "kiv/core/Codecs.h"

#include <istream>
#include <ostream>
#include <string>

namespace kiv {

static_assert(sizeof(GUID) == 32);

namespace {
constexpr size_t textSize = 64;
}

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
