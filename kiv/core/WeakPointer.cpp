#include "kiv/core/WeakPointer.h"

#include "kiv/core/PointerOwner.h"
#include "kiv/core/WeakPointerExtension.h"

namespace kiv {

PointerOwner::~PointerOwner() = default;

void WeakPointerExtension::registerWeakPointer(WeakPointerBase* pointer) {
    const std::lock_guard lock(m_mutex);
    pointer->m_node = m_pointers.insert(m_pointers.end(), pointer);
}

void WeakPointerExtension::unregisterWeakPointer(WeakPointerBase* pointer) {
    const std::lock_guard lock(m_mutex);
    m_pointers.erase(pointer->m_node);
}

void WeakPointerExtension::removeWeakPointers() {
    // The tail is read anew on every turn: an owner may have removed any other entry meanwhile.
    while (!m_pointers.empty()) {
        WeakPointerBase* pointer = m_pointers.back();
        m_pointers.pop_back();
        pointer->m_target = nullptr;
        if (pointer->m_owner) pointer->m_owner->pointerCleared(pointer->m_ownerData);
    }
}

void WeakPointerBase::registerObject() {
    if (!m_target) return;
    WeakPointerExtension* extension = m_target->m_weakPointers.load(std::memory_order_acquire);
    if (!extension) extension = m_target->createWeakPointerExtension();
    extension->registerWeakPointer(this);
}

void WeakPointerBase::unregisterObject() {
    if (!m_target) return;
    m_target->m_weakPointers.load(std::memory_order_acquire)->unregisterWeakPointer(this);
}

void WeakPointerBase::switchTo(Object* newTarget) {
    unregisterObject();
    m_target = newTarget;
    registerObject();
}

} // namespace kiv
