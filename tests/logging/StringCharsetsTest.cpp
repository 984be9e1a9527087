// Hunts: bytes mapped to the wrong characters, systems that disagree, characters lost at bad bytes, surrogates counted
// twice, names that reach the system unchecked, texts changed by a refused conversion.

#include "kiv/core/String.h"
#include "tests/support/OutputCapture.h"

#include <gtest/gtest.h>

using namespace kiv;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

void from(const char* charset, std::string_view bytes, std::u32string_view text) {
    String converted(bytes);
    EXPECT_TRUE(converted.utf8_convert_from_charset(charset)) << charset;
    EXPECT_EQ(converted, String(text)) << charset;
}

void to(const char* charset, std::u32string_view text, std::string_view bytes) {
    String converted(text);
    EXPECT_TRUE(converted.utf8_convert_to_charset(charset)) << charset;
    EXPECT_EQ(converted.encodeUrlBase16(), String(bytes).encodeUrlBase16()) << charset;
}

void both(const char* charset, std::string_view bytes, std::u32string_view text) {
    from(charset, bytes, text);
    to(charset, text, bytes);
}

} // namespace

TEST(StringCharsets, UnicodeFormsAreExact) {
    both("UTF-16LE", "a\0\x3D\xD8\x00\xDE\0\0"sv, U"a\x1F600\0"sv);
    both("utf-16be", "\0a\xD8\x3D\xDE\x00"sv, U"a\x1F600"sv);
    both("UTF-32LE", "a\0\0\0\x00\xF6\x01\0"sv, U"a\x1F600"sv);
    both("UTF_32BE", "\0\0\0a\0\x01\xF6\x00"sv, U"a\x1F600"sv);
    both("UTF-8", "a\0\xC3\xA9"sv, U"a\0\u00E9"sv);
    from("UTF-8", "\xE9\xC3", U"\uFFFD\uFFFD"); // said to be UTF-8: nothing is guessed
    from("UTF-16LE", "\x3D\xD8z\0b"sv, U"\uFFFDz\uFFFD");
    from("UTF-32BE", "\0\x11\0\0\0\0\xD8\0\0"sv, U"\uFFFD\uFFFD\uFFFD");
    both("UTF-16", "\xFF\xFEz\0"sv, U"z"), from("UTF-16", "\xFE\xFF\0z"sv, U"z"), from("UTF-16", "z\0"sv, U"z");
    both("UTF-32", "\xFF\xFE\0\0z\0\0\0"sv, U"z"), from("UTF-32", "\0\0\xFE\xFF\0\0\0z"sv, U"z");
}

TEST(StringCharsets, SingleByteSetsAreExact) {
    both("ISO-8859-1", "\x80\xA4\xE9\xFF", U"\u0080\u00A4\u00E9\u00FF");
    both("iso8859-15", "\xA4\xA6\xBD\xBE\xE9", U"\u20AC\u0160\u0153\u0178\u00E9");
    both("windows-1252", "\x80\x9F\xE9", U"\u20AC\u0178\u00E9");
    from("CP1252", "\x81\x8D\x8F\x90\x9D", U"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    from("US-ASCII", "a\x80\0"sv, U"a\uFFFD\0"sv), to("ascii", U"a\u00E9\x1F600\0z"sv, "a??\0z"sv);
    to("latin1", U"\u20AC\uFFFD", "??");
    both("ISO-8859-10", "\xA1\xFF", U"\u0104\u0138"), both("ISO-8859-11", "\xA1\xDF\xFB", U"\u0E01\u0E3F\u0E5B");
    both("ISO-8859-14", "\xA1\xFE", U"\u1E02\u0177"), both("ISO-8859-16", "\xA4\xFE", U"\u20AC\u021B");
}

// The character sets of image metadata, the same on every system.
TEST(StringCharsets, SystemSetsAreTheSameEverywhere) {
    both("ISO-8859-2", "\xB1\xBF", U"\u0105\u017C"), both("ISO-8859-3", "\xA1\xFE", U"\u0126\u015D");
    both("ISO-8859-4", "\xA2\xFE", U"\u0138\u016B"), both("ISO-8859-5", "\xB0\xEF", U"\u0410\u044F");
    both("ISO-8859-6", "\xC7\xE4", U"\u0627\u0644"), both("ISO-8859-7", "\xC1\xF9", U"\u0391\u03C9");
    both("ISO-8859-8", "\xE0\xFA", U"\u05D0\u05EA"), both("ISO-8859-9", "\xD0\xFE", U"\u011E\u015F");
    both("ISO-8859-13", "\xC0\xFA", U"\u0104\u015B"), both("windows-1250", "\x8A\xB9", U"\u0160\u0105");
    both("windows-1251", "\x80\xFF", U"\u0402\u044F"), both("windows-1253", "\xC1\xF9", U"\u0391\u03C9");
    both("windows-1254", "\xD0\xFE", U"\u011E\u015F"), both("windows-1255", "\xE0\xFA", U"\u05D0\u05EA");
    both("windows-1256", "\xC7\xE1", U"\u0627\u0644"), both("windows-1257", "\xC0\xFA", U"\u0104\u015B");
    both("windows-1258", "\xD0\xF5", U"\u0110\u01A1"), both("KOI8-R", "\xC1\xD1", U"\u0430\u044F");
    both("Shift_JIS", "\x93\xFA\xB1\\a", U"\u65E5\uFF71\\a");
    both("EUC-JP", "\xC6\xFC\x8E\xB1\x8F\xB0\xA1z", U"\u65E5\uFF71\u4E02z");
    both("EUC-KR", "\xB0\xA1\xC8\xFE", U"\uAC00\uD79D"), both("Big5", "\xA4\xA4\xA4\xE5", U"\u4E2D\u6587");
    both("UTF-7", "a+ZeU-", U"a\u65E5"), both("GBK", "\xC4\xE3", U"\u4F60");
    support::OutputCapture quiet; // some systems have no GB18030; with it all of Unicode is in reach
    if (String::utf8_init_charset_conversion("GB18030")) both("GB18030", "\xC4\xE3\x94\x39\xFC\x36", U"\u4F60\x1F600");
}

TEST(StringCharsets, BadBytesCostOnlyThemselves) {
    from("Shift_JIS", "a\x93 b\x93\xFA\x93", U"a\uFFFD b\u65E5\uFFFD");
    from("EUC-JP", "\xC6!\x8F\xB0z", U"\uFFFD!\uFFFD\uFFFDz");
    from("EUC-KR", "\xB0", U"\uFFFD");
    from("ISO-8859-7", "\xC1\xFF\xF9", U"\u0391\uFFFD\u03C9");
    to("Shift_JIS", U"a\x1F600\u0E01\u65E5"sv, "a??\x93\xFA"); // one each, not one a surrogate
    to("windows-1250", U"\u0105\u65E5\u00FF", "\xB9??");       // nothing that only looks alike
    String broken(std::string_view("\xE9\xC3\xA9"));
    EXPECT_TRUE(broken.utf8_convert_to_charset("latin1")); // read leniently
    EXPECT_EQ(broken, "\xE9\xE9");
    for (const char* charset : {"UTF-16", "ISO-8859-2", "Big5"}) from(charset, "", U"");
}

TEST(StringCharsets, UnknownNamesAreRefusedAndLogged) {
    support::OutputCapture output;
    String text = "unchanged";
    const auto refused = [&](bool result, const std::string& message) {
        EXPECT_FALSE(result);
        EXPECT_EQ(output.take(), "[ERROR] unsupported charset conversion " + message + "\n");
        EXPECT_EQ(text, "unchanged");
    };
    refused(text.utf8_convert_from_charset("KLINGON"), "from KLINGON");
    refused(String::utf8_init_charset_conversion("x"), "from x");
    // Neither the locale's charset nor orders to the converter.
    for (const std::string name : {"UTF-9", "", "KOI8-R//TRANSLIT", "//IGNORE", "cp0", "cp99999999999"})
        refused(text.utf8_convert_to_charset(name.c_str()), "to " + name);
    EXPECT_TRUE(String::utf8_init_charset_conversion("UTF-8") && String::utf8_init_charset_conversion("koi8r"));
    EXPECT_EQ(output.take(), "");
}
