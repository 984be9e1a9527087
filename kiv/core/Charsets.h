#pragma once

#include <string>
#include <string_view>

// Conversion between UTF-8 and other charsets. Unicode's own forms, US-ASCII, windows-1252 and the ISO-8859 parts 1,
// 10, 11, 14, 15 and 16 are built in and the same everywhere; the others are the system's. Names are matched without
// regard to case and punctuation, with the usual aliases.

namespace kiv::internal {

// Both replace `out` and are false, `out` then being unspecified, when the charset is not supported. What has no
// counterpart becomes U+FFFD, resp. "?"; `text` is read leniently.
bool charsetToUtf8(std::string_view charset, std::string_view bytes, std::string& out);
bool utf8ToCharset(std::string_view charset, std::string_view text, std::string& out);

} // namespace kiv::internal
