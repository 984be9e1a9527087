#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/AdapterData.h"
#include "kiv/script/Engine.h"
#include "kiv/script/Object.h"
#include "kiv/script/StackGuard.h"

#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

// How native values become script values and back. Access<T> has
//     static bool get(SQVM* v, int64_t index, T& out);   // false when the value in that stack slot is no T
//     static bool push(SQVM* v, const T& value);         // false, with the script error set, when it can't be pushed
//     static const char* name();                         // of the type, for messages
// The one for classes that are bound (see Class.h) is the general one; specialise it for types of your own. Numbers
// convert as the engine does: integers take floats, cut towards zero, and floats take integers; true and false are what
// counts as such; texts are texts.

namespace kivSq {

namespace internal {

// Sets the script error "argument 2: expected integer, got string" and returns SQ_ERROR. Number 0 is a member's value.
KIV_API SQInteger throwMismatch(SQVM* v, int number, const char* expected, SQInteger index);
KIV_API void logFailedConversion(SQVM* v);
// Whether the float or integer in a stack slot, cut towards zero, is a 64-bit integer.
KIV_API bool fitsInteger(SQVM* v, SQInteger index);

inline bool getInteger(SQVM* v, SQInteger index, int64_t smallest, int64_t largest, int64_t& out) {
    SQInteger number = 0;
    if (SQ_FAILED(sq_getinteger(v, index, &number))) return false;
    out = number;
    // Floats that don't fit come as the smallest integer.
    return out >= smallest && out <= largest && (out != INT64_MIN || fitsInteger(v, index));
}

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

template <class T>
T* getInstance(SQVM* v, SQInteger index) {
    return fromInstancePointer<T>(AdapterData::of<T>().getInstance(v, index));
}

// The class an object was bound as: its own, or else T.
template <class T>
const AdapterData& adapterOf(const T& object) {
    if constexpr (isCounted<T>) {
        const AdapterData& own = AdapterData::of(typeid(object));
        if (own.isInitialized()) return own;
    }
    return AdapterData::of<T>();
}

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
    using BoundClass = T;

    static bool get(SQVM* v, int64_t index, T& out) requires std::is_copy_assignable_v<T> {
        return internal::getCopy(v, index, out);
    }
    static bool push(SQVM* v, const T& value) requires(!internal::isCounted<T> && std::is_copy_constructible_v<T>) {
        return internal::pushCopy(v, value);
    }
    static const char* name() { return AdapterData::of<T>().getName(); }
};

namespace internal {

template <class T>
concept BoundClass = requires {
    typename Access<T>::BoundClass;
};

} // namespace internal

template <std::integral T>
struct Access<T> {
    // What fits the width, signed or not.
    static constexpr int64_t smallest = std::numeric_limits<std::make_signed_t<T>>::min();
    static constexpr int64_t largest =
        sizeof(T) < 8 ? static_cast<int64_t>(std::numeric_limits<std::make_unsigned_t<T>>::max()) : INT64_MAX;

    static bool get(SQVM* v, int64_t index, T& out) {
        int64_t value = 0;
        if (!internal::getInteger(v, index, smallest, largest, value)) return false;
        out = static_cast<T>(value);
        return true;
    }
    static bool push(SQVM* v, T value) {
        sq_pushinteger(v, static_cast<SQInteger>(value));
        return true;
    }
    static const char* name() {
        return sizeof(T) == 8   ? "integer"
               : sizeof(T) == 4 ? "32-bit integer"
               : sizeof(T) == 2 ? "16-bit integer"
                                : "8-bit integer";
    }
};

template <>
struct Access<bool> {
    static bool get(SQVM* v, int64_t index, bool& out) {
        SQBool value = SQFalse;
        sq_tobool(v, index, &value);
        out = value != SQFalse;
        return true;
    }
    static bool push(SQVM* v, bool value) {
        sq_pushbool(v, value ? SQTrue : SQFalse);
        return true;
    }
    static const char* name() { return "bool"; }
};

template <std::floating_point T>
struct Access<T> {
    static bool get(SQVM* v, int64_t index, T& out) {
        SQFloat value = 0;
        if (SQ_FAILED(sq_getfloat(v, index, &value))) return false;
        out = static_cast<T>(value);
        return true;
    }
    static bool push(SQVM* v, T value) {
        sq_pushfloat(v, static_cast<SQFloat>(value));
        return true;
    }
    static const char* name() { return "float"; }
};

// The characters are the script's: valid as long as its text is on the stack.
template <>
struct Access<std::string_view> {
    static bool get(SQVM* v, int64_t index, std::string_view& out) {
        const SQChar* text = nullptr;
        if (SQ_FAILED(sq_getstring(v, index, &text))) return false;
        out = std::string_view(text, static_cast<size_t>(sq_getsize(v, index)));
        return true;
    }
    static bool push(SQVM* v, std::string_view value) {
        sq_pushstring(v, value.empty() ? "" : value.data(), static_cast<SQInteger>(value.size()));
        return true;
    }
    static const char* name() { return "string"; }
};

// Null goes to the script as null; scripts can't pass it.
template <>
struct Access<const char*> {
    static bool get(SQVM* v, int64_t index, const char*& out) { return SQ_SUCCEEDED(sq_getstring(v, index, &out)); }
    static bool push(SQVM* v, const char* value) {
        if (!value) {
            sq_pushnull(v);
            return true;
        }
        return Access<std::string_view>::push(v, value);
    }
    static const char* name() { return "string"; }
};

namespace internal {

template <class T>
struct TextAccess {
    static bool get(SQVM* v, int64_t index, T& out) {
        std::string_view text;
        if (!Access<std::string_view>::get(v, index, text)) return false;
        out = T(text.data(), text.size());
        return true;
    }
    static bool push(SQVM* v, const T& value) {
        return Access<std::string_view>::push(v, std::string_view(value.data(), value.size()));
    }
    static const char* name() { return "string"; }
};

} // namespace internal

template <>
struct Access<std::string> : internal::TextAccess<std::string> {};
template <>
struct Access<kiv::String> : internal::TextAccess<kiv::String> {};

// Any script value.
template <>
struct Access<Object> {
    static bool get(SQVM* v, int64_t index, Object& out) {
        out = Object(v, index);
        return true;
    }
    static bool push(SQVM* v, const Object& value) {
        value.push(v);
        return true;
    }
    static const char* name() { return "value"; }
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

// Copies the text into a member of fixed size, at most size - 1 bytes of it and a zero. False when it is no text.
KIV_API bool InitializeCharArrayAccess(SQVM* v, int64_t index, char* buffer, int size);

// Null is none.
template <class T>
struct Access<std::optional<T>> {
    static bool get(SQVM* v, int64_t index, std::optional<T>& out) {
        if (sq_gettype(v, index) == OT_NULL) {
            out.reset();
            return true;
        }
        T value{};
        if (!Access<T>::get(v, index, value)) return false;
        out = std::move(value);
        return true;
    }
    static bool push(SQVM* v, const std::optional<T>& value) {
        if (value) return Access<T>::push(v, *value);
        sq_pushnull(v);
        return true;
    }
    static const char* name() { return Access<T>::name(); }
};

// Whole members of that type.
template <size_t size>
struct Access<char[size]> {
    static bool get(SQVM* v, int64_t index, char (&out)[size]) {
        return InitializeCharArrayAccess(v, index, out, static_cast<int>(size));
    }
    static bool push(SQVM* v, const char (&value)[size]) {
        const std::string_view whole(value, size);
        return Access<std::string_view>::push(v, whole.substr(0, whole.find('\0')));
    }
    static const char* name() { return "string"; }
};

// ---- Handles.

namespace internal {
// The engine VM of the process; null without one.
KIV_API SQVM* currentEngine();
} // namespace internal

template <class T>
Object Object::from(const T& value) {
    SQVM* v = internal::currentEngine();
    if (!v) return {};
    const StackGuard guard(v);
    if (Access<std::decay_t<T>>::push(v, value)) return Object(v, -1);
    internal::logFailedConversion(v);
    return {};
}

template <class T>
bool Object::to(T& out) const {
    // Most numbers need no engine.
    if constexpr (std::integral<T> && !std::is_same_v<T, bool>) {
        const int64_t value = m_handle._unVal.nInteger;
        if (isInteger() && value >= Access<T>::smallest && value <= Access<T>::largest) {
            out = static_cast<T>(value);
            return true;
        }
    }
    SQVM* v = internal::currentEngine();
    if (!v) return false;
    const StackGuard guard(v);
    push(v);
    return Access<T>::get(v, -1, out);
}

} // namespace kivSq

#include "kiv/script/ItemAccess.h"
#include "kiv/script/VectorAccess.h"
