#pragma once

#include "kiv/script/Object.h"

#include <string>

namespace kiv::app {

// A script value as people read it, in the form scripts write it: texts in quotes, tables sorted by key, instances with
// the names of their classes. Broken into lines where it does not fit `columns`. What is deep or long is cut, "...".
// Runs `_tostring` of instances.
std::string showValue(const kivSq::Object& value, size_t columns);

} // namespace kiv::app
