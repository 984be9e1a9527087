#pragma once

#include "kiv/core/TextArg.h"

#include <cstddef>

namespace kiv {

// A constant zero-terminated text that somebody else owns: literals, names of classes, texts inside an Item.
// Never null inside (a null pointer becomes the empty text), and compared, ordered and hashed by its bytes, so that it
// is a safe key where a bare `const char*` would be compared by address. The text must outlive every copy.
class SmartCStr {
public:
    constexpr SmartCStr() noexcept = default;
    constexpr SmartCStr(const char* text) noexcept : m_text(text ? text : "") {}
    // Borrows the characters: valid until the String is changed or destroyed.
    inline SmartCStr(const String& text) noexcept; // in String.h

    constexpr const char* c_str() const noexcept { return m_text; }
    constexpr operator const char*() const noexcept { return m_text; }
    explicit operator bool() const = delete; // would always be true; ask empty()

    constexpr bool empty() const noexcept { return *m_text == 0; }
    // Counts the bytes anew at every call.
    constexpr size_t size() const noexcept { return view().size(); }
    constexpr size_t length() const noexcept { return size(); }
    constexpr std::string_view view() const noexcept { return m_text; }

private:
    const char* m_text = "";
};

inline TextArg::TextArg(const SmartCStr& text) : std::string_view(text.view()) {}

} // namespace kiv

template <>
struct std::hash<kiv::SmartCStr> {
    size_t operator()(const kiv::SmartCStr& text) const noexcept { return std::hash<std::string_view>()(text.view()); }
};
