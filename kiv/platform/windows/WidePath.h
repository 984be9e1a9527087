#pragma once

#include <string>

namespace kiv::platform {

// The UTF-8 path as Windows takes it, also when it is longer than the classic 260 characters. Empty when it is not
// UTF-8 or has a zero byte inside, so that it opens nothing.
std::wstring widePath(const std::string& path);

} // namespace kiv::platform
