#pragma once

#include "kiv/core/ClassChain.h"
#include "kiv/core/WeakPointerBase.h"
#include <mutex>

namespace kiv {

// The registry of the weak pointers that watch one Object; made with the first of them, owned and destroyed by it.
// Registering and unregistering lock. Clearing does not: it runs while the object dies, when by contract no other
// thread reaches it, and owners may unregister further weak pointers from inside their callback.
class WeakPointerExtension {
public:
    WeakPointerExtension(const WeakPointerExtension&) = delete;
    WeakPointerExtension& operator=(const WeakPointerExtension&) = delete;

    static const char* getStaticClassName() { return "WeakPointerExtension"; }
    static ClassChain getStaticClassChain() { return {getStaticClassName()}; }

protected:
    friend class Object;
    friend class WeakPointerBase;

    WeakPointerExtension() = default;
    ~WeakPointerExtension() { removeWeakPointers(); }

    void registerWeakPointer(WeakPointerBase* pointer);
    void unregisterWeakPointer(WeakPointerBase* pointer);
    void removeWeakPointers();

private:
    std::mutex m_mutex;
    internal::WeakPointerList m_pointers;
};

} // namespace kiv
