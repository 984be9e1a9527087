#pragma once

#include <string>

namespace kiv::platform {

// The UTF-8 text in UTF-16. False when it is not UTF-8, has a zero byte inside or more than 65535 bytes.
bool wideText(const std::string& text, std::wstring& out);

} // namespace kiv::platform
