#pragma once

#include "kiv/core/Object.h"
#include <compare>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace kiv {

// Owns one reference to a T, or is null. T derives from Object; it may be incomplete where the pointer is only
// declared. Copying takes a reference, moving takes over the source's. It never deletes: the object does that itself
// when its count falls to zero. Different SmartPointers to one object may be used on different threads, one
// SmartPointer not.
template <class T>
class SmartPointer {
public:
    constexpr SmartPointer() noexcept = default;
    constexpr SmartPointer(std::nullptr_t) noexcept {}
    SmartPointer(T* object) : m_object(object) { retain(); }
    SmartPointer(const SmartPointer& other) : m_object(other.m_object) { retain(); }
    SmartPointer(SmartPointer&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> SmartPointer(const SmartPointer<U>& other) : m_object(other.get()) {
        retain();
    }
    template <class U>
    requires std::is_convertible_v<U*, T*> SmartPointer(SmartPointer<U>&& other)
    noexcept : m_object(other.detach()) {}

    ~SmartPointer() { release(std::exchange(m_object, nullptr)); }

    SmartPointer& operator=(const SmartPointer& other) {
        SmartPointer(other).swap(*this);
        return *this;
    }
    SmartPointer& operator=(SmartPointer&& other) noexcept {
        // Through a temporary: assigning a pointer to itself keeps it, and a destructor that runs here finds both
        // pointers in their final state.
        SmartPointer(std::move(other)).swap(*this);
        return *this;
    }
    SmartPointer& operator=(T* object) {
        SmartPointer(object).swap(*this);
        return *this;
    }
    SmartPointer& operator=(std::nullptr_t) noexcept {
        reset();
        return *this;
    }

    void reset() noexcept { release(std::exchange(m_object, nullptr)); }
    void reset(T* object) { SmartPointer(object).swap(*this); }
    void swap(SmartPointer& other) noexcept { std::swap(m_object, other.m_object); }
    // Gives the reference to the caller, who releases it, and leaves this pointer null.
    [[nodiscard]] T* detach() noexcept { return std::exchange(m_object, nullptr); }

    T* get() const noexcept { return m_object; }
    // Requires: not null.
    T* operator->() const {
        assert(m_object);
        return m_object;
    }
    // Requires: not null.
    T& operator*() const {
        assert(m_object);
        return *m_object;
    }
    explicit operator bool() const noexcept { return m_object != nullptr; }

    friend void swap(SmartPointer& a, SmartPointer& b) noexcept { a.swap(b); }

private:
    void retain() const {
        if (m_object) m_object->increaseReferenceCount();
    }
    static void release(T* object) {
        static_assert(std::is_base_of_v<Object, std::remove_cv_t<T>>, "SmartPointer holds classes derived from Object");
        if (object) object->decreaseReferenceCount();
    }

    T* m_object = nullptr;
};

template <class T, class U>
bool operator==(const SmartPointer<T>& a, const SmartPointer<U>& b) noexcept {
    return a.get() == b.get();
}
template <class T, class U>
bool operator==(const SmartPointer<T>& a, U* b) noexcept {
    return a.get() == b;
}
template <class T>
bool operator==(const SmartPointer<T>& a, std::nullptr_t) noexcept {
    return a.get() == nullptr;
}
// Orders by address, so that pointers can be keys.
template <class T, class U>
std::strong_ordering operator<=>(const SmartPointer<T>& a, const SmartPointer<U>& b) noexcept {
    return std::compare_three_way{}(static_cast<const Object*>(a.get()), static_cast<const Object*>(b.get()));
}

// Makes a counted object: new T(arguments...) in the pointer that owns it.
template <class T, class... Arguments>
SmartPointer<T> makeObject(Arguments&&... arguments) {
    return SmartPointer<T>(new T(std::forward<Arguments>(arguments)...));
}

} // namespace kiv

template <class T>
struct std::hash<kiv::SmartPointer<T>> {
    size_t operator()(const kiv::SmartPointer<T>& pointer) const noexcept { return std::hash<T*>{}(pointer.get()); }
};
