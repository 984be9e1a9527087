#pragma once

#include "kiv/core/Object.h"
#include "kiv/platform/Compiler.h"

namespace kivSq {

// A queue of script threads, at most so many of which run at a time. Main thread.
class KIV_API AsyncQueue : public kiv::Object {
    KIV_OBJECT(AsyncQueue, kiv::Object)
public:
    bool isAborting() const { return m_isAborting; }

private:
    bool m_isAborting = false;
};

} // namespace kivSq
