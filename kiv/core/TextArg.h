#pragma once

#include <concepts>
#include <string>
#include <string_view>

namespace kiv {

class SmartCStr;
class String;

// What text parameters accept: a `const char*` (null counts as the empty text), String, SmartCStr and the standard
// strings, without copying any of them. Use it as a parameter type only: it borrows the caller's characters, which
// need not end with a zero.
class TextArg : public std::string_view {
public:
    TextArg(const char* text) : std::string_view(text ? text : "") {}
    TextArg(const std::string& text) : std::string_view(text) {}
    TextArg(std::string_view text) : std::string_view(text) {}
    inline TextArg(const String& text);    // in String.h
    inline TextArg(const SmartCStr& text); // in SmartCStr.h
};

template <class T>
concept TextLike = std::convertible_to<const T&, TextArg>;

} // namespace kiv
