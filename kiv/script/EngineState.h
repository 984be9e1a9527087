#pragma once

#include "kiv/script/Engine.h"

#include <cstdint>

// The process's one engine, as handles see it.

namespace kivSq {
class VM;
}

namespace kivSq::internal {

// The calling thread becomes the main thread of scripts. Requires: there is no engine.
void installEngine(SQVM* v, VM* vm);
// From now on releasing handles does nothing.
void uninstallEngine();
VM* currentVM();
bool isEngineThread();

// Gives up a reference that the engine of that epoch counts; those of earlier ones are gone with it. On other threads
// it is kept for releaseParkedHandles().
void releaseHandle(HSQOBJECT handle, uint32_t epoch) noexcept;
// What other threads have given up. On the engine's thread.
void releaseParkedHandles();

} // namespace kivSq::internal
