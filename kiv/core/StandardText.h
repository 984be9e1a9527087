#pragma once

#include "kiv/core/TextArg.h"

#include <cstddef>
#include <utility>

namespace kiv::internal {

// The surface of std::string for the class `Text` that derives from it: the same names, meanings and exceptions over
// the one std::string inside. Where std::string has an overload for each kind of text, one TextArg takes them all.
template <class Text>
class StandardText {
public:
    using value_type = char;
    using size_type = size_t;
    using iterator = std::string::iterator;
    using const_iterator = std::string::const_iterator;
    using reverse_iterator = std::string::reverse_iterator;
    using const_reverse_iterator = std::string::const_reverse_iterator;
    static constexpr size_t npos = std::string::npos;

    // Pointers and views are valid until the text is changed.
    const char* c_str() const noexcept { return m_text.c_str(); }
    const char* data() const noexcept { return m_text.data(); }
    char* data() noexcept { return m_text.data(); }
    std::string_view view() const noexcept { return m_text; }

    iterator begin() noexcept { return m_text.begin(); }
    iterator end() noexcept { return m_text.end(); }
    const_iterator begin() const noexcept { return m_text.begin(); }
    const_iterator end() const noexcept { return m_text.end(); }
    reverse_iterator rbegin() noexcept { return m_text.rbegin(); }
    reverse_iterator rend() noexcept { return m_text.rend(); }
    const_reverse_iterator rbegin() const noexcept { return m_text.rbegin(); }
    const_reverse_iterator rend() const noexcept { return m_text.rend(); }

    bool empty() const noexcept { return m_text.empty(); }
    size_t size() const noexcept { return m_text.size(); }
    size_t length() const noexcept { return m_text.size(); }
    size_t max_size() const noexcept { return m_text.max_size(); }
    size_t capacity() const noexcept { return m_text.capacity(); }
    void reserve(size_t size) { m_text.reserve(size); }
    void resize(size_t size, char c = 0) { m_text.resize(size, c); }
    void clear() noexcept { m_text.clear(); }
    void swap(Text& other) noexcept { m_text.swap(other.m_text); }
    friend void swap(Text& a, Text& b) noexcept { a.swap(b); }

    // A template for every integer type: beside a conversion to `const char*` one fixed type would be ambiguous.
    // Requires: 0 <= index <= size(); not checked.
    template <std::integral I>
    char& operator[](I index) {
        return m_text[static_cast<size_t>(index)];
    }
    template <std::integral I>
    const char& operator[](I index) const {
        return m_text[static_cast<size_t>(index)];
    }
    char& at(size_t index) { return m_text.at(index); }
    const char& at(size_t index) const { return m_text.at(index); }
    char front() const { return m_text.front(); }
    char back() const { return m_text.back(); }
    void push_back(char c) { m_text.push_back(c); }
    void pop_back() { m_text.pop_back(); }

    Text& append(TextArg text) { return m_text.append(text), self(); }
    Text& append(char c) { return m_text.push_back(c), self(); }
    Text& append(size_t times, char c) { return m_text.append(times, c), self(); }
    Text& append(const char* text, size_t size) { return append(part(text, size)); }
    Text& append(const Text& text, size_t from, size_t count = npos) { return append(part(text, from, count)); }
    Text& operator+=(TextArg text) { return append(text); }
    Text& operator+=(char c) { return append(c); }
    Text& assign(TextArg text) { return m_text.assign(text), self(); }
    Text& assign(size_t times, char c) { return m_text.assign(times, c), self(); }
    Text& assign(const char* text, size_t size) { return assign(part(text, size)); }
    Text& assign(const Text& text, size_t from, size_t count = npos) { return assign(part(text, from, count)); }
    Text& insert(size_t at, TextArg text) { return m_text.insert(at, text), self(); }
    Text& insert(size_t at, char c) { return m_text.insert(at, 1, c), self(); }
    Text& insert(size_t at, size_t times, char c) { return m_text.insert(at, times, c), self(); }
    Text& insert(size_t at, const char* text, size_t size) { return insert(at, part(text, size)); }
    Text& insert(size_t at, const Text& text, size_t from, size_t count = npos) {
        return insert(at, part(text, from, count));
    }
    iterator insert(const_iterator at, char c) { return m_text.insert(at, c); }
    Text& replace(size_t at, size_t size, TextArg text) { return m_text.replace(at, size, text), self(); }
    Text& replace(size_t at, size_t size, size_t times, char c) { return m_text.replace(at, size, times, c), self(); }
    Text& replace(size_t at, size_t size, const char* text, size_t count) {
        return replace(at, size, part(text, count));
    }
    Text& replace(size_t at, size_t size, const Text& text, size_t from, size_t count = npos) {
        return replace(at, size, part(text, from, count));
    }
    Text& replace(const_iterator first, const_iterator last, TextArg text) {
        return m_text.replace(first, last, std::string_view(text)), self();
    }
    Text& erase(size_t at = 0, size_t count = npos) { return m_text.erase(at, count), self(); }
    iterator erase(const_iterator at) { return m_text.erase(at); }
    iterator erase(const_iterator first, const_iterator last) { return m_text.erase(first, last); }
    Text substr(size_t from = 0, size_t count = npos) const { return Text(m_text, from, count); }

    int compare(TextArg text) const noexcept { return m_text.compare(text); }
    int compare(size_t from, size_t count, TextArg text) const { return m_text.compare(from, count, text); }
    size_t find(TextArg text, size_t from = 0) const noexcept { return m_text.find(text, from); }
    size_t find(char c, size_t from = 0) const noexcept { return m_text.find(c, from); }
    size_t rfind(TextArg text, size_t from = npos) const noexcept { return m_text.rfind(text, from); }
    size_t rfind(char c, size_t from = npos) const noexcept { return m_text.rfind(c, from); }
    size_t find_first_of(TextArg set, size_t from = 0) const noexcept { return m_text.find_first_of(set, from); }
    size_t find_first_of(char c, size_t from = 0) const noexcept { return m_text.find(c, from); }
    size_t find_first_not_of(TextArg set, size_t from = 0) const noexcept {
        return m_text.find_first_not_of(set, from);
    }
    size_t find_first_not_of(char c, size_t from = 0) const noexcept { return m_text.find_first_not_of(c, from); }
    size_t find_last_of(TextArg set, size_t from = npos) const noexcept { return m_text.find_last_of(set, from); }
    size_t find_last_of(char c, size_t from = npos) const noexcept { return m_text.rfind(c, from); }
    size_t find_last_not_of(TextArg set, size_t from = npos) const noexcept {
        return m_text.find_last_not_of(set, from);
    }
    size_t find_last_not_of(char c, size_t from = npos) const noexcept { return m_text.find_last_not_of(c, from); }

    template <TextLike T>
    friend Text operator+(const Text& a, const T& b) {
        return concatenated(a, b);
    }
    template <TextLike T>
    friend Text operator+(Text&& a, const T& b) {
        return std::move(a.append(b));
    }
    template <TextLike T>
    requires(!std::same_as<T, Text>) friend Text operator+(const T& a, const Text& b) { return concatenated(a, b); }
    friend Text operator+(const Text& a, char b) { return concatenated(a, std::string_view(&b, 1)); }
    friend Text operator+(Text&& a, char b) { return std::move(a.append(b)); }
    friend Text operator+(char a, const Text& b) { return concatenated(std::string_view(&a, 1), b); }
    // Would be pointer arithmetic.
    template <std::integral I>
    requires(!std::same_as<I, char>) friend Text operator+(const Text& a, I b) = delete;
    template <std::integral I>
    requires(!std::same_as<I, char>) friend Text operator+(I a, const Text& b) = delete;

protected:
    StandardText() noexcept = default;
    explicit StandardText(std::string&& text) noexcept : m_text(std::move(text)) {}

    static std::string_view part(const char* text, size_t size) { return text ? std::string_view(text, size) : ""; }
    static std::string_view part(const Text& text, size_t from, size_t count) {
        return text.view().substr(from, count);
    }

    std::string m_text;

private:
    Text& self() noexcept { return static_cast<Text&>(*this); }

    static Text concatenated(TextArg a, TextArg b) {
        Text result;
        result.reserve(a.size() + b.size());
        return std::move(result.append(a).append(b));
    }
};

} // namespace kiv::internal
