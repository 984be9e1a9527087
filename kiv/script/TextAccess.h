#pragma once

#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Engine.h"

#include <cstdint>
#include <string>
#include <string_view>

// Texts as arguments and results of native functions; Access.h includes it. Scripts' texts are bytes with a length.

namespace kivSq {

template <class T>
struct Access;

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

// Literals.
template <>
struct Access<char*> {
    static bool push(SQVM* v, const char* value) { return Access<const char*>::push(v, value); }
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

// Copies the text into a member of fixed size, at most size - 1 bytes of it and a zero. False when it is no text.
KIV_API bool InitializeCharArrayAccess(SQVM* v, int64_t index, char* buffer, int size);

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

} // namespace kivSq
