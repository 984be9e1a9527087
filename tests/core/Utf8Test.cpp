// Hunts: overlong, surrogate, cut and too large sequences that slip through; lenient reading that consumes or maps the
// wrong bytes; zero bytes that end the wrong things; vector kernels that differ from one-at-a-time decoding anywhere
// around the edges of their vectors, or read beyond the text.
#include "tests/core/LevelTest.h"

#include "kiv/core/Utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

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

// What the public functions must give, by the inline decoders alone.
struct Expected {
    bool valid = true;
    size_t count = 0;
    std::string repaired, fixed;
    std::u32string utf32;

    explicit Expected(const std::string& text) {
        const char* const end = text.data() + text.size();
        for (const char* it = text.data(); it != end; ++count) {
            const char* strict = it;
            valid = valid && strictDecode(strict, end) != noCodePoint;
            utf32 += static_cast<char32_t>(lenientDecode(it, end));
        }
        for (size_t i = 0; i < utf32.size() && utf32[i] != 0; ++i) {
            char form[4];
            repaired.append(form, encodeUtf8(utf32[i], form));
            fixed += utf32[i] < 0x80 ? static_cast<char>(utf32[i]) : '?';
        }
    }
};

// The text lies in a heap block of exactly its size, so that an address sanitizer sees every read beyond it.
void expectAllFunctionsAgree(const std::string& text) {
    const Expected expected(text);
    const std::unique_ptr<char[]> exact(new char[text.size()]);
    std::copy(text.begin(), text.end(), exact.get());
    const char* const data = exact.get();
    std::string out;
    std::u16string utf16;
    std::u32string utf32;
    bool agree = validateUtf8(data, text.size()) == expected.valid && countUtf8(data, text.size()) == expected.count;
    repairUtf8(data, text.size(), out);
    agree = agree && out == expected.repaired;
    asciiFix(data, text.size(), ControlCodes::Keep, out);
    agree = agree && out == expected.fixed;
    utf8ToUnicode(data, text.size(), utf32);
    agree = agree && utf32 == expected.utf32;
    unicodeToUtf8(utf32.data(), utf32.size(), out);
    utf8ToUnicode(data, text.size(), utf16);
    std::string fromUtf16;
    unicodeToUtf8(utf16.data(), utf16.size(), fromUtf16);
    agree = agree && out == fromUtf16 && (!expected.valid || out == text);
    ASSERT_TRUE(agree) << testing::PrintToString(text);
}

// One case of every way to be right, then one of every way to be wrong.
constexpr size_t validFragments = 13;
const std::vector<std::string>& fragments() {
    // clang-format off
    static const std::vector<std::string> all = {
        "a", "plain ASCII, long enough for a whole vector", "\0"s, "\x7F", "\u00E9", "\u07FF", "\u0800", "\uD7FF",
        "\uE000", "\uFFFF", "\U00010000", "\U0010FFFF", "\U0001F600\u20AC\u00FC",
        "\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3\xA9\xA9", "\xE0\x9F\xBF", "\xE2\x82", "\xE2",
        "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF0\x90\x80", "\xF0\x90", "\xF0", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
        "\xFF", "\x81"};
    // clang-format on
    return all;
}

class Utf8Levels : public LevelTest {};
INSTANTIATE_TEST_SUITE_P(, Utf8Levels, allLevels(), levelName);

} // namespace

TEST_P(Utf8Levels, EveryFragmentAtEveryOffsetAroundVectorEdges) {
    for (const std::string& fragment : fragments()) {
        for (const size_t size : {16u, 31u, 33u, 64u, 65u, 129u, 200u}) {
            // Within ASCII; within two-byte code points, where the plain-text short cut is not taken; and at the end.
            for (size_t at = size > 70 ? size - 70 : 0; at <= size; ++at) {
                expectAllFunctionsAgree(std::string(at, 'a') + fragment + std::string(size - at, 'b'));
                std::string dense;
                for (size_t i = 0; i < at / 2; ++i) dense += "\u00E9";
                expectAllFunctionsAgree(dense + fragment + dense.substr(0, (size - at) / 2 * 2));
                expectAllFunctionsAgree(dense + fragment);
            }
        }
        if (HasFatalFailure()) return;
    }
}

TEST_P(Utf8Levels, EveryPairOfBytesAndManyLongerPrefixes) {
    // Exhaustive where a decision is made: all leads and second bytes, then one third and fourth byte of each class.
    static constexpr char classes[] = {'\x00', '\x41', '\x80', '\x8F', '\x90', '\x9F',
                                       '\xA0', '\xBF', '\xC3', '\xE2', '\xF0'};
    const std::string lead(29, 'x');
    for (unsigned pair = 0; pair < 0x10000; ++pair) {
        if (pair < 0x8000 && pair % 7 != 0) continue; // an ASCII lead needs no more than a sample
        for (const char third : classes) {
            for (const char fourth : {'\x41', '\x80', '\xBF', '\xC3'}) {
                const char bytes[] = {static_cast<char>(pair >> 8), static_cast<char>(pair), third, fourth};
                const std::string text = lead + std::string(bytes, 4);
                const char* it = text.data();
                const char* const end = it + text.size();
                while (it != end && strictDecode(it, end) != noCodePoint) continue;
                ASSERT_EQ(validateUtf8(text.data(), text.size()), it == end) << testing::PrintToString(text);
            }
        }
    }
}

TEST_P(Utf8Levels, LongTextsOfOneFragmentOverflowNoCounter) {
    for (const std::string& fragment : fragments()) {
        std::string text;
        while (text.size() < 20000) text += fragment;
        expectAllFunctionsAgree(text);
    }
}

TEST_P(Utf8Levels, RandomTextsGiveWhatOneAtATimeDecodingGives) {
    std::mt19937 random(20240229);
    const auto below = [&](size_t limit) { return random() % limit; };
    for (int round = 0; round < 1500; ++round) {
        // Valid, mostly valid, or dense with refused bytes; sometimes across the pieces that long texts are read in.
        const size_t size = round % 50 == 0 ? 8100 + below(9000) : below(400);
        const size_t kinds = round % 3 == 0 ? validFragments : fragments().size();
        const size_t plain = below(20);
        std::string text;
        while (text.size() < size) text += below(20) < plain ? "b" : fragments()[below(kinds)];
        if (round % 2 == 0) std::erase(text, '\0');
        expectAllFunctionsAgree(text);
        if (HasFatalFailure()) return;
    }
}

TEST(Utf8, ExactlyTheEncodedCodePointsAreAccepted) {
    char form[4];
    for (uint32_t codePoint = 0; codePoint < 0x110800; ++codePoint) {
        const unsigned length = encodeUtf8(codePoint, form);
        const char* it = form;
        ASSERT_EQ(length != 0, isEncodable(codePoint)) << codePoint;
        ASSERT_TRUE(length == 0 || (strictDecode(it, form + length) == codePoint && it == form + length)) << codePoint;
        for (unsigned cut = 1; cut < length; ++cut) { // not even a part of it
            it = form;
            ASSERT_TRUE(strictDecode(it, form + cut) == noCodePoint && it == form) << codePoint;
        }
    }
    EXPECT_TRUE(isEncodable(0xD7FF) && !isEncodable(0xD800) && !isEncodable(0xDFFF) && isEncodable(0xE000) &&
                isEncodable(0x10FFFF) && !isEncodable(0x110000));
    // Of all other bytes none decode: what is accepted is what the encoder writes.
    for (uint32_t bytes = 0x800000; bytes <= 0xFFFFFF; ++bytes) {
        for (const char last : {'\x41', '\x80', '\xBF'}) {
            const char text[] = {static_cast<char>(bytes >> 16), static_cast<char>(bytes >> 8),
                                 static_cast<char>(bytes), last};
            const char* it = text;
            const uint32_t codePoint = strictDecode(it, text + 4);
            if (codePoint == noCodePoint) continue;
            ASSERT_EQ(encodeUtf8(codePoint, form), it - text) << bytes;
            ASSERT_TRUE(std::equal(text + 0, it, form)) << bytes;
        }
    }
}

TEST(Utf8, RefusedBytesAreReadOneByOneAsWindows1252) {
    const auto is = [](const std::string& text, const char* expected) { EXPECT_EQ(repaired(text), expected); };
    is("\xC0\x80", "\u00C0\u20AC"), is("\xED\xA0\x80", "\u00ED\u00A0\u20AC");
    is("\xF4\x90\x80\x80", "\u00F4\uFFFD\u20AC\u20AC"), is("\x81\x8D\x8F\x90\x9D", "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD");
    is("caf\xE9 \x93x\x94 \xE2\x82\xAC", "caf\u00E9 \u201Cx\u201D \u20AC");
    is("ab\0cd"s, "ab"), is("\xE9\0cd"s, "\u00E9"), is("", "");
    EXPECT_EQ(countUtf8("a\0\xC3\xA9\xC3", 5), 4u);
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
