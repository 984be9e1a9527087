#include "kiv/core/Charsets.h"

#include "kiv/core/CharsetTables.h"
#include "kiv/core/Utf8.h"
#include "kiv/platform/Charset.h"

#include <algorithm>
#include <charconv>

namespace kiv::internal {

namespace {

enum class Form { System, SingleByte, Utf8, Utf16, Utf16LE, Utf16BE, Utf32, Utf32LE, Utf32BE };

struct Charset {
    Form form = Form::System;
    const HighHalf* highHalf = nullptr; // SingleByte
    platform::SystemCharset system;     // System
};

struct BuiltIn {
    std::string_view aliases; // lower-case letters and digits only
    Form form;
    const HighHalf* highHalf = nullptr;
};

constexpr BuiltIn builtIns[] = {
    {"utf8 isoir192 cp65001", Form::Utf8},
    {"utf16 ucs2 iso10646ucs2", Form::Utf16},
    {"utf16le ucs2le cp1200", Form::Utf16LE},
    {"utf16be ucs2be cp1201", Form::Utf16BE},
    {"utf32 ucs4 iso10646ucs4", Form::Utf32},
    {"utf32le ucs4le cp12000", Form::Utf32LE},
    {"utf32be ucs4be cp12001", Form::Utf32BE},
    {"usascii ascii iso646us iso646irv1991 ansix341968 ansix341986 isoir6 us cp367 cp20127", Form::SingleByte, &ascii},
    {"iso88591 latin1 l1 isoir100 cp819 cp28591", Form::SingleByte, &latin1},
    {"iso885910 latin6 l6 isoir157", Form::SingleByte, &latin6},
    {"iso885911 isoir166 tis620 tis6200 tis6202533", Form::SingleByte, &thai},
    {"iso885914 latin8 l8 isoir199 isoceltic", Form::SingleByte, &latin8},
    {"iso885915 latin9 l9 isoir203 cp28605", Form::SingleByte, &latin9},
    {"iso885916 latin10 l10 isoir226", Form::SingleByte, &latin10},
    {"windows1252 cp1252", Form::SingleByte, &windows1252},
};

struct KnownToSystems {
    std::string_view aliases;
    std::string_view name;
    unsigned codePage;
};

// The East Asian charsets stand for the supersets that are in use under their names.
constexpr KnownToSystems knownToSystems[] = {
    {"iso88592 latin2 l2 isoir101", "ISO-8859-2", 28592},
    {"iso88593 latin3 l3 isoir109", "ISO-8859-3", 28593},
    {"iso88594 latin4 l4 isoir110", "ISO-8859-4", 28594},
    {"iso88595 cyrillic isoir144", "ISO-8859-5", 28595},
    {"iso88596 arabic ecma114 asmo708 isoir127", "ISO-8859-6", 28596},
    {"iso88597 greek greek8 ecma118 elot928 isoir126", "ISO-8859-7", 28597},
    {"iso88598 hebrew isoir138", "ISO-8859-8", 28598},
    {"iso88599 latin5 l5 isoir148", "ISO-8859-9", 28599},
    {"iso885913 latin7 l7 isoir179", "ISO-8859-13", 28603},
    {"koi8r cskoi8r", "KOI8-R", 20866},
    {"koi8u", "KOI8-U", 21866},
    {"shiftjis sjis xsjis mskanji windows31j cswindows31j", "CP932", 932},
    {"eucjp xeucjp", "EUC-JP", 20932},
    {"euckr ksc56011987 ksc5601 ksx1001 uhc isoir149", "CP949", 949},
    {"gb18030 gb180302000 gb180302005", "GB18030", 54936},
    {"gbk gb2312 gb231280 euccn isoir58", "CP936", 936},
    {"big5 big5eten cnbig5 xxbig5", "CP950", 950},
    {"iso2022jp csiso2022jp", "ISO-2022-JP", 50220},
    {"utf7", "UTF-7", 65000},
    {"macintosh mac macroman", "MACINTOSH", 10000},
};

bool hasAlias(std::string_view aliases, std::string_view name) {
    for (size_t begin = 0; begin < aliases.size();) {
        const size_t end = std::min(aliases.find(' ', begin), aliases.size());
        if (aliases.substr(begin, end - begin) == name) return true;
        begin = end + 1;
    }
    return false;
}

std::string normalized(std::string_view name) {
    std::string result;
    for (char c : name) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 0x20);
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) result += c;
    }
    return result;
}

// The number in "cp1250", "windows1250" and the like; 0 when the name has another form.
unsigned codePageOf(std::string_view name) {
    for (const std::string_view prefix : {"cp", "windows", "ibm", "ms"}) {
        if (!name.starts_with(prefix)) continue;
        const char* const end = name.data() + name.size();
        unsigned number = 0;
        const auto [last, error] = std::from_chars(name.data() + prefix.size(), end, number);
        if (error == std::errc() && last == end) return number;
    }
    return 0;
}

Charset findCharset(std::string_view givenName) {
    const std::string name = normalized(givenName);
    const unsigned codePage = codePageOf(name);
    const std::string codePageName = "CP" + std::to_string(codePage);
    const std::string key = codePage == 0 ? name : normalized(codePageName);
    for (const BuiltIn& row : builtIns)
        if (hasAlias(row.aliases, key)) return {row.form, row.highHalf, {}};
    for (const KnownToSystems& row : knownToSystems)
        if (hasAlias(row.aliases, key) || row.codePage == codePage)
            return {Form::System, nullptr, {std::string(row.name), row.codePage}};
    if (codePage != 0) return {Form::System, nullptr, {codePageName, codePage}};
    return {Form::System, nullptr, {std::string(givenName), 0}};
}

void singleByteToUtf8(const HighHalf& highHalf, std::string_view bytes, std::string& out) {
    std::u16string units;
    units.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        units += static_cast<char16_t>(byte < 0x80 ? byte : highHalf[byte - 0x80u]);
    }
    unicodeToUtf8(units.data(), units.size(), out);
}

void utf8ToSingleByte(const HighHalf& highHalf, std::string_view text, std::string& out) {
    out.clear();
    out.reserve(text.size());
    for (const char *it = text.data(), *const end = it + text.size(); it != end;) {
        const uint32_t codePoint = lenientDecode(it, end);
        if (codePoint < 0x80) {
            out += static_cast<char>(codePoint);
            continue;
        }
        const auto found = std::find(highHalf.begin(), highHalf.end(), codePoint);
        const bool isMapped = codePoint != replacementCodePoint && found != highHalf.end();
        out += isMapped ? static_cast<char>(0x80 + (found - highHalf.begin())) : '?';
    }
}

// Unlike lenient reading, which guesses: these bytes are said to be UTF-8.
void strictToUtf8(std::string_view bytes, std::string& out) {
    out.clear();
    out.reserve(bytes.size());
    for (const char *it = bytes.data(), *const end = it + bytes.size(); it != end;) {
        const char* const begin = it;
        if (strictDecode(it, end) != noCodePoint) {
            out.append(begin, it);
        } else {
            out += "\xEF\xBF\xBD";
            ++it;
        }
    }
}

// A unit cut short at the end becomes U+FFFD.
template <class Unit>
void unitsToUtf8(std::string_view bytes, bool isBigEndian, std::string& out) {
    std::basic_string<Unit> units;
    units.reserve(bytes.size() / sizeof(Unit) + 1);
    for (; bytes.size() >= sizeof(Unit); bytes.remove_prefix(sizeof(Unit))) {
        uint32_t unit = 0;
        for (size_t i = 0; i < sizeof(Unit); ++i)
            unit = unit << 8 | static_cast<unsigned char>(bytes[isBigEndian ? i : sizeof(Unit) - 1 - i]);
        units += static_cast<Unit>(unit);
    }
    if (!bytes.empty()) units += static_cast<Unit>(replacementCodePoint);
    unicodeToUtf8(units.data(), units.size(), out);
}

template <class Unit>
void utf8ToUnits(std::string_view text, bool isBigEndian, std::string& out) {
    std::basic_string<Unit> units;
    utf8ToUnicode(text.data(), text.size(), units);
    out.clear();
    out.reserve(units.size() * sizeof(Unit));
    for (const Unit unit : units)
        for (size_t i = 0; i < sizeof(Unit); ++i)
            out += static_cast<char>(unit >> 8 * (isBigEndian ? sizeof(Unit) - 1 - i : i));
}

// Without an order in the charset's name a byte order mark tells it, little-endian is taken otherwise; both writing and
// reading, the mark is no part of the text.
template <class Unit>
void markedUnitsToUtf8(std::string_view bytes, std::string& out) {
    constexpr std::string_view bigEndianMark("\0\0\xFE\xFF", 4), littleEndianMark("\xFF\xFE\0\0", 4);
    const bool isBigEndian = bytes.starts_with(bigEndianMark.substr(4 - sizeof(Unit)));
    const bool isMarked = isBigEndian || bytes.starts_with(littleEndianMark.substr(0, sizeof(Unit)));
    unitsToUtf8<Unit>(bytes.substr(isMarked ? sizeof(Unit) : 0), isBigEndian, out);
}

template <class Unit>
void utf8ToMarkedUnits(std::string_view text, std::string& out) {
    utf8ToUnits<Unit>("\xEF\xBB\xBF" + std::string(text), false, out);
}

// The whole text: repairUtf8() ends before the first zero byte.
void repairToUtf8(std::string_view text, std::string& out) {
    std::u32string codePoints;
    utf8ToUnicode(text.data(), text.size(), codePoints);
    unicodeToUtf8(codePoints.data(), codePoints.size(), out);
}

bool systemToUtf8(const platform::SystemCharset& charset, std::string_view bytes, std::string& out) {
    std::u16string units;
    if (!platform::charsetToUtf16(charset, bytes, units)) return false;
    unicodeToUtf8(units.data(), units.size(), out);
    return true;
}

bool utf8ToSystem(const platform::SystemCharset& charset, std::string_view text, std::string& out) {
    std::u16string units;
    utf8ToUnicode(text.data(), text.size(), units);
    return platform::utf16ToCharset(charset, units, out);
}

} // namespace

bool charsetToUtf8(std::string_view name, std::string_view bytes, std::string& out) {
    const Charset charset = findCharset(name);
    switch (charset.form) {
    case Form::System:
        return systemToUtf8(charset.system, bytes, out);
    case Form::SingleByte:
        singleByteToUtf8(*charset.highHalf, bytes, out);
        break;
    case Form::Utf8:
        strictToUtf8(bytes, out);
        break;
    case Form::Utf16:
        markedUnitsToUtf8<char16_t>(bytes, out);
        break;
    case Form::Utf16LE:
        unitsToUtf8<char16_t>(bytes, false, out);
        break;
    case Form::Utf16BE:
        unitsToUtf8<char16_t>(bytes, true, out);
        break;
    case Form::Utf32:
        markedUnitsToUtf8<char32_t>(bytes, out);
        break;
    case Form::Utf32LE:
        unitsToUtf8<char32_t>(bytes, false, out);
        break;
    case Form::Utf32BE:
        unitsToUtf8<char32_t>(bytes, true, out);
        break;
    }
    return true;
}

bool utf8ToCharset(std::string_view name, std::string_view text, std::string& out) {
    const Charset charset = findCharset(name);
    switch (charset.form) {
    case Form::System:
        return utf8ToSystem(charset.system, text, out);
    case Form::SingleByte:
        utf8ToSingleByte(*charset.highHalf, text, out);
        break;
    case Form::Utf8:
        repairToUtf8(text, out);
        break;
    case Form::Utf16:
        utf8ToMarkedUnits<char16_t>(text, out);
        break;
    case Form::Utf16LE:
        utf8ToUnits<char16_t>(text, false, out);
        break;
    case Form::Utf16BE:
        utf8ToUnits<char16_t>(text, true, out);
        break;
    case Form::Utf32:
        utf8ToMarkedUnits<char32_t>(text, out);
        break;
    case Form::Utf32LE:
        utf8ToUnits<char32_t>(text, false, out);
        break;
    case Form::Utf32BE:
        utf8ToUnits<char32_t>(text, true, out);
        break;
    }
    return true;
}

} // namespace kiv::internal
