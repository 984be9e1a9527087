#pragma once

#include <string>
#include <string_view>

// The charsets that the system knows, beside those the library reads and writes itself.

namespace kiv::platform {

// A charset by its registered name and by its Windows code page (0: none); each system uses the part it understands.
struct SystemCharset {
    std::string name;
    unsigned codePage = 0;
};

// Both replace `out` and are false, `out` then being unspecified, when this system does not know the charset. What has
// no counterpart becomes U+FFFD (one for each byte that begins no character), resp. "?" (one for each code point).
// Requires: no unpaired surrogates in `text`.
bool charsetToUtf16(const SystemCharset& charset, std::string_view bytes, std::u16string& out);
bool utf16ToCharset(const SystemCharset& charset, std::u16string_view text, std::string& out);

} // namespace kiv::platform
