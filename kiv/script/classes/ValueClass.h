#pragma once

#include "kiv/script/Class.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/classes/Bindings.h"

// What the script classes of plain values have in common.

namespace kivSq::internal {

// A 32-bit integer that has its sign.
struct Int32 {
    operator int32_t() const { return value; }

    int32_t value = 0;
};

// For _nexti: the key behind `previous`, null behind the last.
template <size_t count>
const char* keyBehind(const char* const (&keys)[count], const Object& previous) {
    size_t next = 0;
    if (!previous.isNull())
        while (next < count && !previous.isSame(Object::from(keys[next++]))) {
        }
    return next < count ? keys[next] : nullptr;
}

template <class T>
void addValueMethods(Class<T>& scriptClass) {
    scriptClass
        .method(
            "getClassName", +[](const T&) { return T::getStaticClassName(); })
        .method(
            "_typeof", +[](const T&) { return T::getStaticClassName(); })
        .method("toString", &T::toString)
        .method("_tostring", &T::toString)
        .method(
            "equals", +[](const T& a, const T& b) { return a == b; });
}

// For classes that have an order.
template <class T>
int compareValues(const T& a, const T& b) {
    return (a > b) - (a < b);
}

// Its class is bound when the first is needed.
template <void (*bind)(const Object&), class T>
bool pushBound(SQVM* v, const T& value) {
    if (!AdapterData::of<T>().isInitialized()) bind(requireVM().getNamespace("kiv"));
    return pushCopy(v, value);
}

} // namespace kivSq::internal

namespace kivSq {

template <>
struct Access<internal::Int32> {
    static bool get(SQVM* v, int64_t index, internal::Int32& out) {
        int64_t wide = 0;
        if (!internal::getInteger(v, index, INT32_MIN, INT32_MAX, wide)) return false;
        out.value = static_cast<int32_t>(wide);
        return true;
    }
    static const char* name() { return "signed 32-bit integer"; }
};

} // namespace kivSq
