// Hunts: bytes mapped to the wrong characters, systems that disagree, characters lost at bad bytes, surrogates counted
// twice, names that reach the system unchecked, texts changed by a refused conversion.

#include "kiv/core/String.h"
#include "tests/support/OutputCapture.h"

#include <gtest/gtest.h>

using namespace kiv;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

void expectFrom(const char* charset, std::string_view bytes, std::u32string_view text) {
    String converted(bytes);
    EXPECT_TRUE(converted.utf8_convert_from_charset(charset)) << charset;
    EXPECT_EQ(converted, String(text)) << charset;
}

void expectTo(const char* charset, std::u32string_view text, std::string_view bytes) {
    String converted(text);
    EXPECT_TRUE(converted.utf8_convert_to_charset(charset)) << charset;
    EXPECT_EQ(converted.encodeUrlBase16(), String(bytes).encodeUrlBase16()) << charset;
}

void expectBoth(const char* charset, std::string_view bytes, std::u32string_view text) {
    expectFrom(charset, bytes, text);
    expectTo(charset, text, bytes);
}

} // namespace

TEST(StringCharsets, UnicodeFormsAreExact) {
    expectBoth("UTF-16LE", "a\0\x3D\xD8\x00\xDE\0\0"sv, U"a\x1F600\0"sv);
    expectBoth("utf-16be", "\0a\xD8\x3D\xDE\x00"sv, U"a\x1F600"sv);
    expectBoth("UTF-32LE", "a\0\0\0\x00\xF6\x01\0"sv, U"a\x1F600"sv);
    expectBoth("UTF_32BE", "\0\0\0a\0\x01\xF6\x00"sv, U"a\x1F600"sv);
    expectBoth("UTF-8", "a\0\xC3\xA9"sv, U"a\0\u00E9"sv);
    expectFrom("UTF-8", "\xE9\xC3", U"\uFFFD\uFFFD"); // said to be UTF-8: nothing is guessed
    expectFrom("UTF-16LE",
               "\x3D\xD8"
               "a\0b"sv,
               U"\uFFFDa\uFFFD");
    expectFrom("UTF-32BE", "\0\x11\0\0\0\0\xD8\0\0"sv, U"\uFFFD\uFFFD\uFFFD");
    expectBoth("UTF-16",
               "\xFF\xFE"
               "a\0"sv,
               U"a");
    expectFrom("UTF-16", "\xFE\xFF\0a"sv, U"a");
    expectFrom("UTF-16", "a\0"sv, U"a");
    expectBoth("UTF-32", "\xFF\xFE\0\0a\0\0\0"sv, U"a");
    expectFrom("UTF-32", "\0\0\xFE\xFF\0\0\0a"sv, U"a");
}

TEST(StringCharsets, SingleByteSetsAreExact) {
    expectBoth("ISO-8859-1", "\x80\xA4\xE9\xFF", U"\u0080\u00A4\u00E9\u00FF");
    expectBoth("iso8859-15", "\xA4\xA6\xBD\xBE\xE9", U"\u20AC\u0160\u0153\u0178\u00E9");
    expectBoth("windows-1252", "\x80\x9F\xE9", U"\u20AC\u0178\u00E9");
    expectFrom("CP1252", "\x81\x8D\x8F\x90\x9D", U"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    expectFrom("US-ASCII", "a\x80\0"sv, U"a\uFFFD\0"sv);
    expectTo("ascii", U"a\u00E9\x1F600\0z"sv, "a??\0z"sv);
    expectTo("latin1", U"\u20AC\uFFFD", "??");
    expectBoth("ISO-8859-10", "\xA1\xFF", U"\u0104\u0138");
    expectBoth("ISO-8859-11", "\xA1\xDF\xFB", U"\u0E01\u0E3F\u0E5B");
    expectBoth("ISO-8859-14", "\xA1\xFE", U"\u1E02\u0177");
    expectBoth("ISO-8859-16", "\xA4\xFE", U"\u20AC\u021B");
}

// The character sets of image metadata, the same on every system.
TEST(StringCharsets, SystemSetsAreTheSameEverywhere) {
    expectBoth("ISO-8859-2", "\xB1\xBF", U"\u0105\u017C");
    expectBoth("ISO-8859-3", "\xA1\xFE", U"\u0126\u015D");
    expectBoth("ISO-8859-4", "\xA2\xFE", U"\u0138\u016B");
    expectBoth("ISO-8859-5", "\xB0\xEF", U"\u0410\u044F");
    expectBoth("ISO-8859-6", "\xC7\xE4", U"\u0627\u0644");
    expectBoth("ISO-8859-7", "\xC1\xF9", U"\u0391\u03C9");
    expectBoth("ISO-8859-8", "\xE0\xFA", U"\u05D0\u05EA");
    expectBoth("ISO-8859-9", "\xD0\xFE", U"\u011E\u015F");
    expectBoth("ISO-8859-13", "\xC0\xFA", U"\u0104\u015B");
    expectBoth("windows-1250", "\x8A\xB9", U"\u0160\u0105");
    expectBoth("windows-1251", "\x80\xFF", U"\u0402\u044F");
    expectBoth("windows-1253", "\xC1\xF9", U"\u0391\u03C9");
    expectBoth("windows-1254", "\xD0\xFE", U"\u011E\u015F");
    expectBoth("windows-1255", "\xE0\xFA", U"\u05D0\u05EA");
    expectBoth("windows-1256", "\xC7\xE1", U"\u0627\u0644");
    expectBoth("windows-1257", "\xC0\xFA", U"\u0104\u015B");
    expectBoth("windows-1258", "\xD0\xF5", U"\u0110\u01A1");
    expectBoth("KOI8-R", "\xC1\xD1", U"\u0430\u044F");
    expectBoth("Shift_JIS", "\x93\xFA\xB1\\a", U"\u65E5\uFF71\\a");
    expectBoth("EUC-JP", "\xC6\xFC\x8E\xB1\x8F\xB0\xA1z", U"\u65E5\uFF71\u4E02z");
    expectBoth("EUC-KR", "\xB0\xA1\xC8\xFE", U"\uAC00\uD79D");
    expectBoth("Big5", "\xA4\xA4\xA4\xE5", U"\u4E2D\u6587");
    expectBoth("UTF-7", "a+ZeU-", U"a\u65E5");
    expectBoth("GBK", "\xC4\xE3", U"\u4F60");
}

TEST(StringCharsets, GB18030ReachesAllOfUnicodeWhereTheSystemHasIt) {
    support::OutputCapture quiet;
    if (!String::utf8_init_charset_conversion("GB18030")) GTEST_SKIP() << "this system has no GB18030";
    expectBoth("GB18030", "\xC4\xE3\x94\x39\xFC\x36", U"\u4F60\x1F600");
}

TEST(StringCharsets, BadBytesCostOnlyThemselves) {
    expectFrom("Shift_JIS", "a\x93 b\x93\xFA\x93", U"a\uFFFD b\u65E5\uFFFD");
    expectFrom("EUC-JP", "\xC6!\x8F\xB0z", U"\uFFFD!\uFFFD\uFFFDz");
    expectFrom("EUC-KR", "\xB0", U"\uFFFD");
    expectFrom("ISO-8859-7", "\xC1\xFF\xF9", U"\u0391\uFFFD\u03C9");
    expectTo("Shift_JIS", U"a\x1F600\u0E01\u65E5"sv, "a??\x93\xFA"); // one each, not one a surrogate
    expectTo("windows-1250", U"\u0105\u65E5\u00FF", "\xB9??");       // nothing that only looks alike
    String broken(std::string_view("\xE9\xC3\xA9"));
    EXPECT_TRUE(broken.utf8_convert_to_charset("latin1")); // read leniently
    EXPECT_EQ(broken, "\xE9\xE9");
    for (const char* charset : {"UTF-16", "ISO-8859-2", "Big5"}) expectFrom(charset, "", U"");
}

TEST(StringCharsets, UnknownNamesAreRefusedAndLogged) {
    support::OutputCapture output;
    const auto refused = [&output](bool result, std::string_view message) {
        return !result && output.take() == message;
    };
    String text = "unchanged";
    EXPECT_TRUE(
        refused(text.utf8_convert_from_charset("KLINGON"), "[ERROR] unsupported charset conversion from KLINGON\n"));
    EXPECT_TRUE(refused(text.utf8_convert_to_charset("UTF-9"), "[ERROR] unsupported charset conversion to UTF-9\n"));
    EXPECT_TRUE(refused(String::utf8_init_charset_conversion("x"), "[ERROR] unsupported charset conversion from x\n"));
    // Neither the locale's charset nor orders to the converter.
    for (const char* name : {"", "KOI8-R//TRANSLIT", "//IGNORE", "cp0", "cp99999999999"})
        EXPECT_TRUE(
            refused(text.utf8_convert_to_charset(name), "[ERROR] unsupported charset conversion to "s + name + "\n"))
            << name;
    EXPECT_EQ(text, "unchanged");
    EXPECT_TRUE(String::utf8_init_charset_conversion("UTF-8") && String::utf8_init_charset_conversion("koi8r"));
    EXPECT_EQ(output.take(), "");
}
