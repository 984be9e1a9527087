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

// All six are written out: where `<=>` stands alone, std::less<> and the ranges take texts, which convert to `const
// char*`, for pointers and order them by address.
template <class A, ComparableTexts<A> B>
bool operator==(const A& a, const B& b) {
    return std::string_view(TextArg(a)) == TextArg(b);
}
template <class A, ComparableTexts<A> B>
std::strong_ordering operator<=>(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) <=> 0;
}
template <class A, ComparableTexts<A> B>
bool operator<(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) < 0;
}
template <class A, ComparableTexts<A> B>
bool operator>(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) > 0;
}
template <class A, ComparableTexts<A> B>
bool operator<=(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) <= 0;
}
template <class A, ComparableTexts<A> B>
bool operator>=(const A& a, const B& b) {
    return TextArg(a).compare(TextArg(b)) >= 0;
}

} // namespace kiv
