#pragma once

#include "kiv/platform/Compiler.h"
#include <list>

namespace kiv {

class Object;
class PointerOwner;
class WeakPointerBase;

namespace internal {
using WeakPointerList = std::list<WeakPointerBase*>;
}

// The untyped part of WeakPointer<T>: a target that is set to null when it dies, and whom to tell.
// Reading the target is safe only on the thread that controls the target's lifetime, or while holding a SmartPointer
// to it. The derived template registers after construction and unregisters before destruction.
class KIV_API WeakPointerBase {
public:
    void setOwner(PointerOwner* owner) { m_owner = owner; }
    // `ownerData` is handed back to the owner's pointerCleared.
    void setOwner(PointerOwner* owner, void* ownerData) {
        m_owner = owner;
        m_ownerData = ownerData;
    }

protected:
    // Sets the target without registering.
    explicit WeakPointerBase(Object* target) : m_target(target) {}
    // Copies all fields as they are, also the place in the target's registry: whoever copies registers the copy anew.
    WeakPointerBase(const WeakPointerBase&) = default;
    WeakPointerBase(WeakPointerBase&&) = default;
    WeakPointerBase& operator=(const WeakPointerBase&) = default;
    WeakPointerBase& operator=(WeakPointerBase&&) = default;
    ~WeakPointerBase() = default;

    void registerObject();
    // Leaves the target as it is.
    void unregisterObject();
    void switchTo(Object* newTarget);
    Object* getTarget() const { return m_target; }

private:
    friend class WeakPointerExtension;

    Object* m_target = nullptr;
    PointerOwner* m_owner = nullptr;
    void* m_ownerData = nullptr;
    internal::WeakPointerList::iterator m_node{};
};

} // namespace kiv
