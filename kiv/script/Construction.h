#pragma once

#include "kiv/script/Call.h"

#include <utility>

// How scripts construct and clone instances of native classes: trampolines, one for each class.

namespace kivSq {

// Makes objects for scripts: for a Constructor, beside signatures.
template <auto function>
struct Factory {};

} // namespace kivSq

namespace kivSq::internal {

template <class Overload>
struct Creation;

// As a constructor of T ...
template <class... Arguments>
struct Creation<void(Arguments...)> {
    static constexpr SQInteger count = sizeof...(Arguments);

    template <class T>
    static SQInteger create(SQVM* v, T*& out) {
        return invoke<void, Arguments...>(
            v, 2, [&](auto&&... arguments) { out = new T(std::forward<decltype(arguments)>(arguments)...); },
            std::index_sequence_for<Arguments...>());
    }
};

// ... or by a function that returns a new one; it throws where it can't.
template <class C, class... Arguments, C* (*function)(Arguments...)>
struct Creation<Factory<function>> {
    static constexpr SQInteger count = sizeof...(Arguments);

    template <class T>
    static SQInteger create(SQVM* v, T*& out) {
        return invoke<void, Arguments...>(
            v, 2, [&](auto&&... arguments) { out = function(std::forward<decltype(arguments)>(arguments)...); },
            std::index_sequence_for<Arguments...>());
    }
};

// 0 when what is in slot 1 waits for a native object of this very class, and not of one derived from it in native code.
KIV_API SQInteger checkConstruction(SQVM* v, const AdapterData& adapter);

template <class T>
SQInteger install(SQVM* v, T* object) {
    if constexpr (isCounted<T>) object->increaseReferenceCount();
    // The hook last: it finds a whole object or none.
    sq_setinstanceup(v, 1, instancePointer(object));
    sq_setreleasehook(v, 1, &releaseInstance<T>);
    return 0;
}

template <class T, class... Overloads>
SQInteger construct(SQVM* v) noexcept {
    return guarded(v, [v]() -> SQInteger {
        if (const SQInteger refusal = checkConstruction(v, AdapterData::of<T>()); refusal != 0) return refusal;
        const SQInteger count = sq_gettop(v) - 1;
        T* object = nullptr;
        SQInteger result = SQ_ERROR;
        const bool isKnown =
            ((Creation<Overloads>::count == count && (result = Creation<Overloads>::create(v, object), true)) || ...);
        if (!isKnown) return sq_throwerror(v, "invalid argument count on native constructor call");
        if (object) return install(v, object);
        return SQ_FAILED(result) ? result : sq_throwerror(v, "the native object could not be made");
    });
}

KIV_API SQInteger throwNoConstructor(SQVM* v) noexcept;
KIV_API SQInteger throwNoConstructorClone(SQVM* v) noexcept;
KIV_API SQInteger throwNoCopyClone(SQVM* v) noexcept;
// The source of a clone; null, with the script error set, when there is none or the instance is in use already.
KIV_API void* cloneSource(SQVM* v, const AdapterData& adapter);

template <class T>
SQInteger cloneInstance(SQVM* v) noexcept {
    return guarded(v, [v]() -> SQInteger {
        void* source = cloneSource(v, AdapterData::of<T>());
        if (!source) return SQ_ERROR;
        return install(v, new T(*fromInstancePointer<T>(source)));
    });
}

} // namespace kivSq::internal
