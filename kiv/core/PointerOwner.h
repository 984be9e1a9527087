#pragma once

#include "kiv/core/ClassChain.h"
#include "kiv/platform/Compiler.h"

namespace kiv {

// Is told when the target of a weak pointer it owns has died; it sets itself with WeakPointerBase::setOwner.
// The call comes on the thread that deletes the target, no lock held. It may discard or retarget any weak pointer, and
// must not touch the dying object. An owner outlives its weak pointers, or takes itself out of them first.
class KIV_API PointerOwner {
protected:
    virtual ~PointerOwner();

public:
    virtual void pointerCleared(void* ownerData) = 0;

    static const char* getStaticClassName() { return "PointerOwner"; }
    static ClassChain getStaticClassChain() { return {getStaticClassName()}; }
};

} // namespace kiv
