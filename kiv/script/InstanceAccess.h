#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/script/AdapterData.h"
#include "kiv/script/Engine.h"

#include <cstdint>
#include <memory>
#include <type_traits>

// Objects of bound classes as arguments and results of native functions; Access.h includes it. A counted object is
// shared with the script, which holds a reference; any other is copied, unless it is an argument by reference. Pointers
// are valid as long as the instance is on the engine's stack.

namespace kivSq {

namespace internal {

// What an instance holds: of a counted class its kiv::Object, with a reference; of any other the value itself.
template <class T>
constexpr bool isCounted = std::is_base_of_v<kiv::Object, T>;

template <class T>
void* instancePointer(T* object) {
    if constexpr (isCounted<T>) {
        return static_cast<kiv::Object*>(object);
    } else {
        return object;
    }
}

template <class T>
T* fromInstancePointer(void* pointer) {
    if constexpr (isCounted<T>) {
        return static_cast<T*>(static_cast<kiv::Object*>(pointer));
    } else {
        return static_cast<T*>(pointer);
    }
}

// What the engine calls at an instance's end.
template <class T>
SQInteger releaseInstance(SQUserPointer pointer, SQInteger) noexcept {
    if (!pointer) return 1;
    if constexpr (isCounted<T>) {
        static_cast<kiv::Object*>(pointer)->decreaseReferenceCount();
    } else {
        delete static_cast<T*>(pointer);
    }
    return 1;
}

// Null for what is no instance of the class, and for one without a native object.
template <class T>
T* getInstance(SQVM* v, SQInteger index) {
    return fromInstancePointer<T>(AdapterData::of<T>().getInstance(v, index));
}

// The class an object was bound as: its own, or else T.
template <class T>
const AdapterData& adapterOf(const T& object) {
    if constexpr (isCounted<T>) {
        if (typeid(object) == typeid(T)) return AdapterData::of<T>();
        const AdapterData& own = AdapterData::of(typeid(object));
        if (own.isInitialized()) return own;
    }
    return AdapterData::of<T>();
}

// With a reference for the script; null is null.
template <class T>
bool pushCounted(SQVM* v, T* object) {
    if (!object) {
        sq_pushnull(v);
        return true;
    }
    object->increaseReferenceCount();
    if (adapterOf(*object).pushInstance(v, instancePointer(object), &releaseInstance<T>)) return true;
    object->decreaseReferenceCount();
    return false;
}

// Instances of a bound class that hold a value.
template <class T>
bool getCopy(SQVM* v, int64_t index, T& out) {
    const T* const object = getInstance<T>(v, index);
    if (object) out = *object;
    return object;
}

template <class T>
bool pushCopy(SQVM* v, const T& value) {
    auto copy = std::make_unique<T>(value);
    if (!AdapterData::of<T>().pushInstance(v, copy.get(), &releaseInstance<T>)) return false;
    copy.release();
    return true;
}

} // namespace internal

// Classes that are bound: values are copied, counted ones can only be taken by reference or pointer.
template <class T>
struct Access {
    static_assert(std::is_class_v<T> || std::is_union_v<T>,
                  "of pointers, only those to classes derived from kiv::Object go to and from scripts");
    using BoundClass = T;

    static bool get(SQVM* v, int64_t index, T& out) requires std::is_copy_assignable_v<T> {
        return internal::getCopy(v, index, out);
    }
    static bool push(SQVM* v, const T& value) requires(!internal::isCounted<T> && std::is_copy_constructible_v<T>) {
        return internal::pushCopy(v, value);
    }
    static const char* name() { return AdapterData::of<T>().getName(); }
};

// Counted objects; null is null both ways.
template <class T>
requires internal::isCounted<T>
struct Access<T*> {
    static bool get(SQVM* v, int64_t index, T*& out) {
        out = internal::getInstance<T>(v, index);
        return out || sq_gettype(v, index) == OT_NULL;
    }
    static bool push(SQVM* v, T* value) { return internal::pushCounted(v, value); }
    static const char* name() { return AdapterData::of<T>().getName(); }
};

template <class T>
struct Access<kiv::SmartPointer<T>> {
    static bool get(SQVM* v, int64_t index, kiv::SmartPointer<T>& out) {
        T* object = nullptr;
        if (!Access<T*>::get(v, index, object)) return false;
        out = object;
        return true;
    }
    static bool push(SQVM* v, const kiv::SmartPointer<T>& value) { return internal::pushCounted(v, value.get()); }
    static const char* name() { return Access<T*>::name(); }
};

namespace internal {

// Whether no Access of its own says how T converts.
template <class T>
concept BoundClass = requires {
    typename Access<T>::BoundClass;
};

} // namespace internal

} // namespace kivSq
