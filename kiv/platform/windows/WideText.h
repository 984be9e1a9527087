#pragma once

#include <string>
#include <string_view>

namespace kiv::platform {

// The UTF-8 text in UTF-16. False when it is not UTF-8, has a zero byte inside or more than 65535 bytes.
bool wideText(const std::string& text, std::wstring& out);

// The other way; what is not UTF-16 becomes U+FFFD.
std::string narrowText(std::wstring_view text);

} // namespace kiv::platform
