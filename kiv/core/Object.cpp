#include "kiv/core/Object.h"

#include "kiv/core/UnmanagedObject.h"
#include "kiv/core/WeakPointerExtension.h"

namespace kiv {
namespace {

// Never destroyed: static objects may be watched until the process ends.
std::mutex& weakRegistryCreation() {
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

} // namespace

static_assert(sizeof(Object) == 3 * sizeof(void*), "beyond its vtable an Object is one pointer and a 32-bit count");

const char* Object::getDynamicClassName() const {
    return getStaticClassName();
}

ClassChain Object::getDynamicClassChain() {
    return getStaticClassChain();
}

Object::~Object() {
    delete m_weakPointers.load(std::memory_order_acquire);
}

UnmanagedObject::~UnmanagedObject() = default;

ClassChain Object::getStaticClassChain() {
    ClassChain chain{};
    fillClassChain(chain, 0);
    return chain;
}

void Object::deleteSelf() {
    m_referenceCount.store(dyingBias, std::memory_order_relaxed); // nobody else is left to see it change
    delete this;
}

void Object::removeWeakPointers() {
    if (WeakPointerExtension* extension = m_weakPointers.load(std::memory_order_acquire))
        extension->removeWeakPointers();
}

WeakPointerExtension* Object::createWeakPointerExtension() {
    const std::lock_guard lock(weakRegistryCreation());
    WeakPointerExtension* extension = m_weakPointers.load(std::memory_order_relaxed);
    if (!extension) {
        extension = new WeakPointerExtension;
        m_weakPointers.store(extension, std::memory_order_release);
    }
    return extension;
}

} // namespace kiv
