#pragma once

#include "kiv/core/ByteSpan.h"
#include "kiv/core/Containers.h"
#include "kiv/core/SmartCStr.h"
#include "kiv/core/StandardText.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <iosfwd>

namespace kiv {

class Buffer;

// The text of the library: a std::string whose bytes are UTF-8 by convention. Bytes that are not UTF-8 are never
// refused: every `utf8_` operation reads such a byte as one Windows-1252 character (strict ones and validate()
// excepted). A plain value; a null `const char*` counts as the empty text everywhere. The standard-string surface
// (StandardText.h) throws what std::string throws, everything else throws length_error and bad_alloc at most.
class KIV_API String : public internal::StandardText<String> {
public:
    // Not inline: inline variables are in no library for Windows.
    static const uint32_t noCodePoint = 0xFFFFFFFF;

    String() noexcept = default;
    String(std::nullptr_t) noexcept {}
    String(const char* text) : StandardText(text ? text : "") {}
    String(const char* text, size_t length) : StandardText(std::string(part(text, length))) {}
    explicit String(std::string_view text) : StandardText(std::string(text)) {}
    explicit String(const ConstByteSpan& bytes);
    String(const std::string& text) : StandardText(std::string(text)) {}
    String(std::string&& text) noexcept : StandardText(std::move(text)) {}
    String(const std::string& text, size_t position, size_t count = npos) : StandardText({text, position, count}) {}
    String(const String& text, size_t position, size_t count = npos) : StandardText({text.m_text, position, count}) {}
    String(size_t count, char c) : StandardText(std::string(count, c)) {}
    String(const SmartCStr& text) : StandardText(text.c_str()) {}
    // From UTF-16 and UTF-32, pointers zero-terminated; a lone surrogate or a value above 0x10FFFF becomes U+FFFD.
    String(const std::wstring& text);
    String(const unsigned short* text);
    String(const unsigned int* text);
    explicit String(std::u16string_view text);
    explicit String(std::u32string_view text);

    // Templates, so that `text = {}` stays unambiguous.
    template <TextLike T>
    String& operator=(const T& text) {
        return assign(text);
    }
    template <std::same_as<std::string> T>
    String& operator=(T&& text) {
        return m_text = std::move(text), *this;
    }
    template <std::same_as<char> T>
    String& operator=(T c) {
        return m_text = c, *this;
    }

    // ---- Conversions; pointers, references and views are valid until the text is changed.
    operator const char*() const noexcept { return m_text.c_str(); }
    operator const std::string&() const noexcept { return m_text; }
    operator std::string_view() const noexcept { return m_text; }
    explicit operator bool() const = delete; // would be the pointer's; ask empty()
    const std::string& to_std_string() const& noexcept { return m_text; }
    std::string to_std_string() && noexcept { return std::move(m_text); }
    std::u16string utf8_to_utf16() const;
    std::u32string utf8_to_unicode() const;
    std::wstring utf8_to_std_wstring() const; // UTF-16 on Windows, UTF-32 elsewhere
    // Both throw length_error when the bytes do not fit the 32-bit size of a span.
    ConstByteSpan getConstByteSpan() const;
    ConstByteSpan getConstByteSpanWithNullTerminator() const;

    // ---- Predicates.
    bool begins_with(TextArg text) const noexcept { return view().starts_with(text); }
    bool begins_with(char c) const noexcept { return view().starts_with(c); }
    bool ends_with(TextArg text) const noexcept { return view().ends_with(text); }
    bool ends_with(char c) const noexcept { return view().ends_with(c); }
    bool ends_with_newline() const noexcept { return ends_with('\n') || ends_with('\r'); }
    bool contains(TextArg text) const noexcept { return find(text) != npos; }
    bool contains(char c) const noexcept { return find(c) != npos; }
    bool validate() const noexcept; // whether all of it is UTF-8, by the strict rules

    // ---- Editing: the first three edit in place, the rest return what they made.
    String& replace_all(TextArg from, TextArg to); // an empty `from` replaces nothing
    String& replace_all(char from, char to) noexcept;
    // Appends the separator unless the text is empty or ends with it already.
    String& append_separator(TextArg separator);
    String& append_separator(char separator);
    String replace_all_copy(TextArg from, TextArg to) const;
    String replace_all_copy(char from, char to) const;
    String trim_spaces() const;          // without blanks and tabs at both ends
    String trim_spaces_newlines() const; // without blanks, tabs, CR and LF at both ends
    String trim_leading_zeros() const;   // "0" and "000" become the empty text
    // The pieces between separators, empty ones and the one after the last separator included; an empty text has none.
    Vector<String> split(char separator) const;
    Vector<String> splitByString(TextArg separator) const; // an empty separator never occurs

    // ---- Code points. Positions and counts are in code points, read leniently; a zero byte is one code point.
    // Readers move `it` past what they read; at the end they give 0 and stay, so loops test `it != end()`.
    uint32_t utf8_parse(const_iterator& it) const noexcept;
    uint32_t utf8_parse(iterator& it) noexcept;
    uint32_t utf8_peek(const_iterator it) const noexcept { return utf8_parse(it); }
    // noCodePoint where the bytes are not UTF-8; `it` then stays.
    uint32_t utf8_strict_parse(const_iterator& it) const noexcept;
    uint32_t utf8_strict_parse(iterator& it) noexcept;
    uint32_t utf8_strict_peek(const_iterator it) const noexcept { return utf8_strict_parse(it); }
    // The same for text outside a String: [it, end).
    static uint32_t utf8_parse(const char*& it, const char* end) noexcept;
    static uint32_t utf8_strict_parse(const char*& it, const char* end) noexcept;
    size_t utf8_size() const noexcept;
    uint32_t utf8_at(size_t position) const noexcept;                    // noCodePoint beyond the end
    const_iterator utf8_get_iterator_at(size_t position) const noexcept; // end() beyond the end
    String utf8_substr(size_t position, size_t count = npos) const;      // clamps; the bytes stay as they are
    // Appends nothing for noCodePoint, U+FFFD for other values that are no code points.
    String& utf8_append(uint32_t codePoint);
    // Case mapping is one code point to one code point and knows no locale; broken bytes come out repaired.
    String utf8_lowercase() const;
    String utf8_uppercase() const;
    String utf8_capitalize() const;                         // title case for the first code point, the rest as it is
    bool utf8_isnumeric() const noexcept;                   // ASCII digits only, and at least one
    bool utf8_contains_special_characters() const noexcept; // anything but 0x20 to 0x7E
    // Bit 0: a strong left-to-right code point occurs; bit 1: a strong right-to-left one; bit 2: the first strong one
    // is right-to-left.
    unsigned utf8_rtl_flags() const noexcept;

    // ---- Charsets (defined in logging/). Both convert in place, between the named charset and UTF-8: what has no
    // counterpart becomes U+FFFD, resp. "?". An unsupported name is logged; the result is false, the text unchanged.
    bool utf8_convert_from_charset(TextArg charset);
    bool utf8_convert_to_charset(TextArg charset);
    static bool utf8_init_charset_conversion(TextArg charset); // whether both directions are supported; logs if not

    // ---- Repair and escaping; all return copies.
    String utf8_fix() const;                      // valid UTF-8, read leniently; ends before the first zero byte
    String ascii_fix() const;                     // the same with "?" for every code point from 128 on
    String ascii_fix_remove_controlcodes() const; // and without 0x01 to 0x1F and 0x7F
    String escapeHtmlCharacters() const;          // & < > " '
    String utf8_escape_controlcode() const;       // \n \r \t \\ and \xHH for other control codes; keeps texts distinct
    String utf8_escape_filepath() const; // a file name on every system (percent-encoding); keeps texts distinct
    String utf8_escape_php() const;      // inside a quoted PHP string
    String encodeUrlBase16() const;      // percent-encoding of all but A-Z a-z 0-9 - . _ ~

    // ---- Codecs. Encoders make text of the bytes of this text (or buffer). Decoders read this text; they give false
    // and leave `out` as it is when it is not exactly what the encoder writes (base16: either case), or longer than
    // 0x7FFFFFFF bytes. Sizes are those of the decoded bytes, 0 when no encoding has this length.
    String encodeBase16() const;
    String encodeBase64() const;
    String encodeBase64crc() const;
    static String encodeBase16FromBuffer(const ConstByteSpan& bytes);
    static String encodeBase64FromBuffer(const ConstByteSpan& bytes);
    static String encodeBase64crcFromBuffer(const ConstByteSpan& bytes);
    bool decodeBase16(String& out) const;
    bool decodeBase64(String& out) const;
    bool decodeBase64crc(String& out) const;
    bool decodeBase16toBuffer(Buffer& out) const;
    bool decodeBase64toBuffer(Buffer& out) const;
    bool decodeBase64crctoBuffer(Buffer& out) const;
    uint64_t getDecodeBase16Size() const noexcept;
    uint64_t getDecodeBase64Size() const noexcept;
    uint64_t getDecodeBase64crcSize() const noexcept;

    // ---- Other.
    // Orders as people do: runs of digits by value, letters without case; total: 0 for identical texts only.
    static int natural_compare(const char* a, const char* b) noexcept;
    // Replaces the text by its translation (Object::tr), in the empty or the given context.
    String& apply_tr();
    String& apply_tr(TextArg context);
    // Files (defined in files/). Paths are UTF-8. Failures are logged ("cant open file" only unless quiet) and leave
    // the text empty, as does a file of 4 GiB or more.
    bool loadFromFile(TextArg path, bool quiet = false);
    bool saveToFile(TextArg path) const;

    friend KIV_API std::ostream& operator<<(std::ostream& out, const String& text);
};

static_assert(sizeof(String) == sizeof(std::string));

inline TextArg::TextArg(const String& text) : std::string_view(text.view()) {}
inline SmartCStr::SmartCStr(const String& text) noexcept : m_text(text.c_str()) {}

} // namespace kiv

template <>
struct std::hash<kiv::String> {
    size_t operator()(const kiv::String& text) const noexcept { return std::hash<std::string_view>()(text.view()); }
};
