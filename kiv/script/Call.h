#pragma once

#include "kiv/script/Access.h"

#include <cstring>
#include <exception>
#include <tuple>
#include <utility>

// How scripts call native functions: trampolines, one for each signature, that find the function in the user data of
// their closure. No exception gets past them into the engine.

namespace kivSq::internal {

// ---- One argument: taken from the stack before the call, handed over in the call.

template <class T>
struct Argument {
    using Value = std::remove_cvref_t<T>;

    bool read(SQVM* v, SQInteger index) { return Access<Value>::get(v, index, value); }
    static const char* name() { return Access<Value>::name(); }
    T&& get() { return static_cast<T&&>(value); }

    Value value{};
};

// Objects of bound classes are not copied where a reference will do.
template <class T>
requires BoundClass<std::remove_cvref_t<T>>
struct Argument<T> {
    using Value = std::remove_cvref_t<T>;

    bool read(SQVM* v, SQInteger index) { return (object = getInstance<Value>(v, index)) != nullptr; }
    static const char* name() { return Access<Value>::name(); }
    // A copy is made for parameters by value, also for those the function may move from.
    decltype(auto) get() {
        if constexpr (std::is_lvalue_reference_v<T>) {
            return static_cast<T>(*object);
        } else {
            return Value(*object);
        }
    }

    Value* object = nullptr;
};

template <class T>
requires(!std::is_reference_v<T> && !BoundClass<T>) struct Argument<T> {
    bool read(SQVM* v, SQInteger index) { return Access<std::remove_cv_t<T>>::get(v, index, value); }
    static const char* name() { return Access<std::remove_cv_t<T>>::name(); }
    std::remove_cv_t<T>&& get() { return std::move(value); }

    std::remove_cv_t<T> value{};
};

// ---- Calls.

KIV_API SQInteger throwException(SQVM* v, const std::exception* failure) noexcept;

// Runs what may throw; the engine must not be unwound.
template <class Function>
KIV_ALWAYS_INLINE SQInteger guarded(SQVM* v, Function&& function) noexcept {
    try {
        return function();
    } catch (const std::exception& failure) {
        return throwException(v, &failure);
    } catch (...) {
        return throwException(v, nullptr);
    }
}

template <class Result, class Call>
SQInteger pushResult(SQVM* v, Call&& call) {
    if constexpr (std::is_void_v<Result>) {
        call();
        return 0;
    } else if constexpr (std::is_pointer_v<Result> && isCounted<std::remove_cv_t<std::remove_pointer_t<Result>>>) {
        using Class = std::remove_cv_t<std::remove_pointer_t<Result>>;
        return Access<Class*>::push(v, const_cast<Class*>(call())) ? 1 : SQ_ERROR;
    } else if constexpr (std::is_reference_v<Result> && isCounted<std::remove_cvref_t<Result>>) {
        return pushCounted(v, const_cast<std::remove_cvref_t<Result>*>(&call())) ? 1 : SQ_ERROR;
    } else {
        return Access<std::remove_cvref_t<Result>>::push(v, call()) ? 1 : SQ_ERROR;
    }
}

// Takes the arguments from stack slot `first` on and calls `function(arguments...)`.
template <class Result, class... Arguments, class Function, size_t... indices>
SQInteger invoke(SQVM* v, SQInteger first, Function&& function, std::index_sequence<indices...>) {
    [[maybe_unused]] std::tuple<Argument<Arguments>...> arguments;
    int wrong = 0;
    const char* expected = "";
    const bool isGood = ((std::get<indices>(arguments).read(v, first + static_cast<SQInteger>(indices)) ||
                          (wrong = static_cast<int>(indices) + 1, expected = Argument<Arguments>::name(), false)) &&
                         ...);
    if (!isGood) return throwMismatch(v, wrong, expected, first + wrong - 1);
    return pushResult<Result>(v, [&]() -> decltype(auto) { return function(std::get<indices>(arguments).get()...); });
}

template <class Function>
Function functionAtTop(SQVM* v) {
    SQUserPointer data = nullptr;
    sq_getuserdata(v, -1, &data, nullptr);
    Function function;
    std::memcpy(&function, data, sizeof function);
    return function;
}

// For methods that work on the engine's stack themselves: the object of a call with that many arguments; null, with the
// script error set, when there is none or the count is another.
template <class T>
T* objectOfCall(SQVM* v, SQInteger arguments) {
    if (sq_gettop(v) != 1 + arguments) {
        sq_throwerror(v, "invalid argument count on native method call");
        return nullptr;
    }
    T* const object = getInstance<T>(v, 1);
    if (!object) sq_throwerror(v, "native method call on null-pointer");
    return object;
}

// The trampoline for member functions of T; `Function` is a pointer to one, or to a function that takes the object
// first.
template <class T, class Function, class Result, class... Arguments>
SQInteger callMethod(SQVM* v) noexcept {
    return guarded(v, [v]() -> SQInteger {
        if (sq_gettop(v) != static_cast<SQInteger>(sizeof...(Arguments)) + 2)
            return sq_throwerror(v, "invalid argument count on native method call");
        const auto function = functionAtTop<Function>(v);
        T* const self = getInstance<T>(v, 1);
        if (!self) return sq_throwerror(v, "native method call on null-pointer");
        return invoke<Result, Arguments...>(
            v, 2,
            [&](auto&&... arguments) -> decltype(auto) {
                if constexpr (std::is_member_function_pointer_v<Function>) {
                    return (self->*function)(std::forward<decltype(arguments)>(arguments)...);
                } else {
                    return function(*self, std::forward<decltype(arguments)>(arguments)...);
                }
            },
            std::index_sequence_for<Arguments...>());
    });
}

// The same for functions without object.
template <class Result, class... Arguments>
SQInteger callStatic(SQVM* v) noexcept {
    return guarded(v, [v]() -> SQInteger {
        if (sq_gettop(v) != static_cast<SQInteger>(sizeof...(Arguments)) + 2)
            return sq_throwerror(v, "invalid argument count on native static method call");
        const auto function = functionAtTop<Result (*)(Arguments...)>(v);
        return invoke<Result, Arguments...>(
            v, 2,
            [&](auto&&... arguments) -> decltype(auto) {
                return function(std::forward<decltype(arguments)>(arguments)...);
            },
            std::index_sequence_for<Arguments...>());
    });
}

// For functions that work on the engine's stack themselves: they may throw, too.
template <SQInteger (*function)(SQVM*)>
SQInteger callNative(SQVM* v) noexcept {
    return guarded(v, [v] { return function(v); });
}

// Pushes a closure that has a copy of `function` as its user data.
KIV_API void pushClosure(SQVM* v, SQFUNCTION trampoline, const void* function, size_t size, const char* name);

template <class Result, class... Arguments>
void pushFunction(SQVM* v, const char* name, Result (*function)(Arguments...)) {
    pushClosure(v, &callStatic<Result, Arguments...>, &function, sizeof function, name);
}

} // namespace kivSq::internal
