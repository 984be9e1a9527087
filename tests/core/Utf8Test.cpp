// Hunts: overlong, surrogate, cut and too large sequences that slip through; lenient reading that consumes or maps the
// wrong bytes; zero bytes that end the wrong things.
#include "kiv/core/Utf8.h"

#include <gtest/gtest.h>

#include <string>

using namespace kiv::internal;
using namespace std::string_literals;

namespace {

std::string repaired(const std::string& text) {
    std::string out = "old contents";
    repairUtf8(text.data(), text.size(), out);
    return out;
}

std::string asciiFixed(const std::string& text, ControlCodes controlCodes = ControlCodes::Keep) {
    std::string out = "old contents";
    asciiFix(text.data(), text.size(), controlCodes, out);
    return out;
}

// The code point when strict decoding takes the whole text as one, else noCodePoint.
uint32_t strictOne(const std::string& text) {
    const char* it = text.data();
    const uint32_t codePoint = strictDecode(it, text.data() + text.size());
    EXPECT_EQ(it - text.data(), codePoint == noCodePoint ? 0 : static_cast<ptrdiff_t>(text.size()));
    return codePoint;
}

} // namespace

TEST(Utf8, StrictDecodingRefusesWhatIsNotShortestScalarAndComplete) {
    EXPECT_EQ(strictOne("\0"s), 0u);
    EXPECT_EQ(strictOne("\x7F"), 0x7Fu);
    EXPECT_EQ(strictOne("\xC2\x80"), 0x80u);
    EXPECT_EQ(strictOne("\xDF\xBF"), 0x7FFu);
    EXPECT_EQ(strictOne("\xE0\xA0\x80"), 0x800u);
    EXPECT_EQ(strictOne("\xED\x9F\xBF"), 0xD7FFu);
    EXPECT_EQ(strictOne("\xEE\x80\x80"), 0xE000u);
    EXPECT_EQ(strictOne("\xEF\xBF\xBF"), 0xFFFFu);
    EXPECT_EQ(strictOne("\xF0\x90\x80\x80"), 0x10000u);
    EXPECT_EQ(strictOne("\xF4\x8F\xBF\xBF"), 0x10FFFFu);
    for (const std::string refused : {"\x80",
                                      "\xBF",
                                      "\xC0\x80",
                                      "\xC1\xBF",
                                      "\xC3",
                                      "\xC3\x28",
                                      "\xC3\xC3",
                                      "\xE0\x80\x80",
                                      "\xE0\x9F\xBF",
                                      "\xE2\x82",
                                      "\xE2\x82\x28",
                                      "\xE2\x28\x82",
                                      "\xED\xA0\x80",
                                      "\xED\xBF\xBF",
                                      "\xF0\x80\x80\x80",
                                      "\xF0\x8F\xBF\xBF",
                                      "\xF0\x90\x80",
                                      "\xF0\x90\x80\x28",
                                      "\xF0\x28\x80\x80",
                                      "\xF4\x90\x80\x80",
                                      "\xF5\x80\x80\x80",
                                      "\xF8\x88\x80\x80\x80",
                                      "\xFE",
                                      "\xFF"}) {
        EXPECT_EQ(strictOne(refused), noCodePoint) << testing::PrintToString(refused);
        EXPECT_FALSE(validateUtf8(refused.data(), refused.size())) << testing::PrintToString(refused);
    }
}

TEST(Utf8, RefusedBytesAreReadOneByOneAsWindows1252) {
    EXPECT_EQ(repaired("\xC0\x80"), "\u00C0\u20AC");
    EXPECT_EQ(repaired("\xED\xA0\x80"), "\u00ED\u00A0\u20AC");
    EXPECT_EQ(repaired("\xF4\x90\x80\x80"), "\u00F4\uFFFD\u20AC\u20AC");
    EXPECT_EQ(repaired("caf\xE9 \x93x\x94 \xE2\x82\xAC"), "caf\u00E9 \u201Cx\u201D \u20AC");
    EXPECT_EQ(repaired("\x81\x8D\x8F\x90\x9D"), "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(repaired("ab\0cd"s), "ab");
    EXPECT_EQ(repaired("\xE9\0cd"s), "\u00E9");
    EXPECT_EQ(repaired(""), "");
    EXPECT_EQ(countUtf8("a\0\xC3\xA9\xC3", 5), 4u);
}

TEST(Utf8, AsciiFixMarksEveryCodePointFrom128On) {
    EXPECT_EQ(asciiFixed("\u00E9"), "?");
    EXPECT_EQ(asciiFixed("a\x81\xE9 \U0001F600\tb\x7F\0c"s), "a?? ?\tb\x7F");
    EXPECT_EQ(asciiFixed("a\x81\t\x1F\x7F\n b\0c"s, ControlCodes::Remove), "a? b");
}

TEST(Utf8, UnpairedSurrogatesAndTooLargeUnitsBecomeTheReplacementCharacter) {
    std::string out = "old contents";
    const char16_t units[] = {u'a', 0xD83D, 0xDE00, 0xDE00, 0xD83D, 0xD83D, 0xDE00, 0, 0xFFFF, 0xDBFF};
    unicodeToUtf8(units, std::size(units), out);
    EXPECT_EQ(out, "a\U0001F600\uFFFD\uFFFD\U0001F600\0\uFFFF\uFFFD"s);
    const uint32_t wide[] = {'a', 0x1F600, 0xD800, 0xDFFF, 0x10FFFF, 0x110000, 0xFFFFFFFF, 0};
    unicodeToUtf8(wide, std::size(wide), out);
    EXPECT_EQ(out, "a\U0001F600\uFFFD\uFFFD\U0010FFFF\uFFFD\uFFFD\0"s);
}
