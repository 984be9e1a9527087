#pragma once

#include "kiv/script/Call.h"

#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <type_traits>

// How native data members and properties are read and written: what Class enters into a MemberRecord.

namespace kivSq::internal {

// Between a pointer to a counted class's own part and the kiv::Object that instances hold.
template <class T>
ptrdiff_t offsetOfInstancePointer() {
    if constexpr (isCounted<T>) {
        auto* object = reinterpret_cast<T*>(uintptr_t{1} << 16);
        return reinterpret_cast<char*>(static_cast<kiv::Object*>(object)) - reinterpret_cast<char*>(object);
    } else {
        return 0;
    }
}

// What can be written into a member: nothing that goes on belonging to the script.
template <class M>
constexpr bool isOwning = !std::is_pointer_v<M> && !std::is_same_v<M, std::string_view>;
template <class M>
constexpr bool isOwning<std::optional<M>> = isOwning<M>;
template <class M>
constexpr bool isOwning<kiv::Vector<M>> = isOwning<M>;

// A pointer to a data member is its position, as wide as the compiler has it.
template <class T, class M>
int32_t positionOf(M T::*member) {
    ptrdiff_t position = 0;
    if constexpr (sizeof member == sizeof position) {
        std::memcpy(&position, &member, sizeof position);
    } else {
        static_assert(sizeof member == sizeof(int32_t), "a class with a virtual base can't have data members bound");
        int32_t narrow = 0;
        std::memcpy(&narrow, &member, sizeof narrow);
        position = narrow;
    }
    return static_cast<int32_t>(position - offsetOfInstancePointer<T>());
}

template <class M>
bool readMember(SQVM* v, const MemberRecord&, char* member) {
    return Access<M>::push(v, *reinterpret_cast<const M*>(member));
}

template <class M>
bool writeMember(SQVM* v, const MemberRecord&, char* member, SQInteger index) {
    static_assert(isOwning<M>, "a member that keeps nothing alive can only be bound by readonlyMember or property");
    Argument<const M&> value;
    if constexpr (std::is_array_v<M>) {
        if (Access<M>::get(v, index, *reinterpret_cast<M*>(member))) return true;
    } else {
        if (value.read(v, index)) {
            *reinterpret_cast<M*>(member) = value.get();
            return true;
        }
    }
    throwMismatch(v, 0, Access<M>::name(), index);
    return false;
}

template <class Function>
Function accessor(const std::byte* bytes) {
    Function function;
    std::memcpy(&function, bytes, sizeof function);
    return function;
}

template <class T, class Getter>
bool readProperty(SQVM* v, const MemberRecord& record, char* member) {
    T& self = *fromInstancePointer<T>(member);
    const auto function = accessor<Getter>(record.getter);
    using Result = decltype(std::invoke(function, self));
    return pushResult<Result>(v, [&]() -> decltype(auto) { return std::invoke(function, self); }) == 1;
}

template <class T, class Setter, class Value>
bool writeProperty(SQVM* v, const MemberRecord& record, char* member, SQInteger index) {
    T& self = *fromInstancePointer<T>(member);
    Argument<Value> value;
    if (!value.read(v, index)) {
        throwMismatch(v, 0, Argument<Value>::name(), index);
        return false;
    }
    std::invoke(accessor<Setter>(record.setter), self, value.get());
    return true;
}

} // namespace kivSq::internal
