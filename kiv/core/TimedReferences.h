#pragma once

#include "kiv/platform/Compiler.h"

namespace kiv {

class Object;

namespace internal {

// The two process-wide lists of references that are released later. Any thread appends; an entry carries one reference.
KIV_API void appendTimedReference(Object* object);
// Requires: no weak pointer watches the object.
KIV_API void appendTimedReferenceParallel(Object* object);

// Releases what is listed, the latest entry first, and what the released objects' destructors append meanwhile. No lock
// is held during a release. Returns whether anything was released.
KIV_API bool removeAllTimedReferences();
KIV_API bool removeAllTimedReferencesParallel();

// Warns, in debug builds, of a drain that has come to so many releases. Defined in logging/TimedReferencesLog.cpp.
inline constexpr unsigned longDrain = 100000;
void warnOfLongDrain();

} // namespace internal
} // namespace kiv
