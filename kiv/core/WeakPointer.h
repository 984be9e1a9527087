#pragma once

#include "kiv/core/SmartPointer.h"
#include "kiv/core/WeakPointerBase.h"

namespace kiv {

// Watches a T without owning it; becomes null when the T dies. See WeakPointerBase for who may read it where.
// A copy watches the same target but starts without owner; an assignment changes the target and keeps the owner.
// A moved-from pointer is null; the owner does not move along.
template <class T>
class WeakPointer : public WeakPointerBase {
public:
    WeakPointer() : WeakPointerBase(nullptr) {}
    WeakPointer(T* target) : WeakPointerBase(target) { registerObject(); }
    WeakPointer(const SmartPointer<T>& target) : WeakPointer(target.get()) {}
    WeakPointer(const WeakPointer& other) : WeakPointer(other.get()) {}
    WeakPointer(WeakPointer&& other) : WeakPointer(other.get()) { other.reset(); }
    ~WeakPointer() { unregisterObject(); }

    WeakPointer& operator=(T* target) {
        switchTo(target);
        return *this;
    }
    WeakPointer& operator=(const SmartPointer<T>& target) { return *this = target.get(); }
    WeakPointer& operator=(const WeakPointer& other) { return *this = other.get(); }
    WeakPointer& operator=(WeakPointer&& other) {
        if (this == &other) return *this;
        switchTo(other.getTarget());
        other.reset();
        return *this;
    }

    void reset() { switchTo(nullptr); }

    T* get() const { return static_cast<T*>(getTarget()); }
    // Requires: not null.
    T* operator->() const {
        assert(getTarget());
        return get();
    }
    // Requires: not null.
    T& operator*() const {
        assert(getTarget());
        return *get();
    }
    explicit operator bool() const { return getTarget() != nullptr; }
    // Null when the target has died.
    SmartPointer<T> lock() const { return SmartPointer<T>(get()); }

    friend bool operator==(const WeakPointer& a, const WeakPointer& b) { return a.getTarget() == b.getTarget(); }
    friend bool operator==(const WeakPointer& a, const T* b) { return a.get() == b; }
};

} // namespace kiv
