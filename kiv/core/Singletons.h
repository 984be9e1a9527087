#pragma once

#include "kiv/core/SmartPointer.h"

namespace kiv::internal {

// Like Object::getSingletonObject, with a reference taken under the registry's lock: safe against a setSingleton on
// another thread. Null when nothing is registered.
KIV_API SmartPointer<Object> getSingleton(const char* name);

} // namespace kiv::internal
