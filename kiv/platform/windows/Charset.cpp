#include "kiv/platform/Charset.h"

#include <algorithm>
#include <windows.h>

namespace kiv::platform {

namespace {

constexpr unsigned eucJp = 20932;
// The calls count in int; and no character of any code page is cut while the text fits one piece.
constexpr size_t largestText = 0x3FFFFFFF;

wchar_t* wide(char16_t* units) {
    return reinterpret_cast<wchar_t*>(units);
}
const wchar_t* wide(const char16_t* units) {
    return reinterpret_cast<const wchar_t*>(units);
}

// Appends the text; false (and nothing appended) when it is not valid throughout. Some code pages know no flags, which
// they refuse, and convert whatever they get.
bool appendUtf16(unsigned codePage, std::string_view bytes, std::u16string& out) {
    const int size = static_cast<int>(bytes.size());
    DWORD flags = MB_ERR_INVALID_CHARS;
    int count = ::MultiByteToWideChar(codePage, flags, bytes.data(), size, nullptr, 0);
    if (count == 0 && ::GetLastError() == ERROR_INVALID_FLAGS)
        count = ::MultiByteToWideChar(codePage, flags = 0, bytes.data(), size, nullptr, 0);
    if (count == 0) return false;
    const size_t before = out.size();
    out.resize(before + static_cast<size_t>(count));
    return ::MultiByteToWideChar(codePage, flags, bytes.data(), size, wide(out.data() + before), count) == count;
}

// Appends the first character of the text, the shortest that is valid, and returns its length; 0 when there is none.
size_t appendCharacter(unsigned codePage, std::string_view bytes, std::u16string& out) {
    constexpr size_t longest = 4;
    for (size_t size = 1; size <= std::min(longest, bytes.size()); ++size)
        if (appendUtf16(codePage, bytes.substr(0, size), out)) return size;
    return 0;
}

bool isTrail(std::string_view bytes, size_t index) {
    return index < bytes.size() && static_cast<unsigned char>(bytes[index]) >= 0xA1;
}

// The code page writes the three-byte characters of EUC-JP (8F and two bytes) as two, the second below 80. Bytes that
// begin no character become FF, which is none either.
std::string eucJpToCodePage(std::string_view bytes) {
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        if (lead == 0x8F && isTrail(bytes, i + 1) && isTrail(bytes, i + 2)) {
            out += bytes[++i];
            out += static_cast<char>(bytes[++i] & 0x7F);
        } else if ((lead == 0x8E || lead >= 0xA1) && isTrail(bytes, i + 1)) {
            out += bytes[i];
            out += bytes[++i];
        } else {
            out += lead == 0x8E || lead == 0x8F || lead >= 0xA1 ? '\xFF' : bytes[i];
        }
    }
    return out;
}

std::string eucJpFromCodePage(std::string_view bytes) {
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        const bool isDouble = (lead == 0x8E || lead >= 0xA1) && i + 1 < bytes.size();
        const bool isTriple = isDouble && !isTrail(bytes, i + 1);
        if (isTriple) out += '\x8F';
        out += bytes[i];
        if (isDouble) out += static_cast<char>(isTriple ? bytes[++i] | 0x80 : bytes[++i]);
    }
    return out;
}

} // namespace

bool charsetToUtf16(const SystemCharset& charset, std::string_view bytes, std::u16string& out) {
    if (charset.codePage == 0 || !::IsValidCodePage(charset.codePage) || bytes.size() > largestText) return false;
    std::string rewritten;
    if (charset.codePage == eucJp) bytes = rewritten = eucJpToCodePage(bytes);
    out.clear();
    if (bytes.empty() || appendUtf16(charset.codePage, bytes, out)) return true;
    while (!bytes.empty()) {
        const size_t size = appendCharacter(charset.codePage, bytes, out);
        if (size == 0) out += u'\uFFFD';
        bytes.remove_prefix(std::max<size_t>(size, 1));
    }
    return true;
}

bool utf16ToCharset(const SystemCharset& charset, std::u16string_view text, std::string& out) {
    if (charset.codePage == 0 || !::IsValidCodePage(charset.codePage) || text.size() > largestText) return false;
    out.clear();
    if (text.empty()) return true;
    const int size = static_cast<int>(text.size());
    // Characters that look alike are no counterparts.
    DWORD flags = WC_NO_BEST_FIT_CHARS;
    const char* substitute = "?";
    int count =
        ::WideCharToMultiByte(charset.codePage, flags, wide(text.data()), size, nullptr, 0, substitute, nullptr);
    if (count > 0) {
        // No code page that knows substitutes reaches beyond U+FFFF, and each half of a pair would be given one.
        std::u16string whole;
        for (size_t i = 0; i < text.size(); ++i) {
            const bool isPair = text[i] >= 0xD800 && text[i] < 0xDC00;
            whole += isPair ? u'\uFFFD' : text[i];
            if (isPair) ++i;
        }
        out.resize(static_cast<size_t>(count));
        count = ::WideCharToMultiByte(charset.codePage, flags, wide(whole.data()), static_cast<int>(whole.size()),
                                      out.data(), count, substitute, nullptr);
    } else {
        // The others, which write all of Unicode, accept neither flags nor a substitute.
        count = ::WideCharToMultiByte(charset.codePage, 0, wide(text.data()), size, nullptr, 0, nullptr, nullptr);
        out.resize(static_cast<size_t>(count));
        count =
            ::WideCharToMultiByte(charset.codePage, 0, wide(text.data()), size, out.data(), count, nullptr, nullptr);
    }
    out.resize(static_cast<size_t>(count));
    if (charset.codePage == eucJp) out = eucJpFromCodePage(out);
    return count > 0;
}

} // namespace kiv::platform
