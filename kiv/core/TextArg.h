#pragma once

#include <compare>
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

// Texts of the library compare with each other and with every other text, by their bytes.
template <class A, class B>
concept ComparableTexts = TextLike<A> && TextLike<B> &&
    (std::same_as<A, String> || std::same_as<A, SmartCStr> || std::same_as<B, String> || std::same_as<B, SmartCStr>);

// In the result type, where every compiler looks first: the standard library asks by name whether there are operators
// for pointers to our classes, and clang 14 takes the mere declaration of one for pointers as an error.
template <class Result, class A, class B>
requires ComparableTexts<A, B>
using TextComparison = Result;

// All six are written out: where `<=>` stands alone, std::less<> and the ranges take texts, which convert to `const
// char*`, for pointers and order them by address.
template <class A, class B>
TextComparison<bool, A, B> operator==(const A& a, const B& b) {
    return std::string_view(TextArg(a)) == TextArg(b);
}
template <class A, class B>
TextComparison<std::strong_ordering, A, B> operator<=>(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) <=> 0;
}
template <class A, class B>
TextComparison<bool, A, B> operator<(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) < 0;
}
template <class A, class B>
TextComparison<bool, A, B> operator>(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) > 0;
}
template <class A, class B>
TextComparison<bool, A, B> operator<=(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) <= 0;
}
template <class A, class B>
TextComparison<bool, A, B> operator>=(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) >= 0;
}

} // namespace kiv
