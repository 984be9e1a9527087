#pragma once

#include "kiv/platform/Compiler.h"

#include <atomic>

namespace kiv::platform {

// Set by an interrupt that was caught.
KIV_API std::atomic<bool>& interruptFlag();

// From now on an interrupt from the terminal (SIGINT, or Ctrl-C and Ctrl-Break) sets the flag; one that finds it set
// ends the process as if it had not been caught. A process that was started with interrupts ignored goes on ignoring
// them. Not counted. One thread at a time.
KIV_API void catchInterrupts();
// Back to what was before.
KIV_API void releaseInterrupts();

} // namespace kiv::platform
