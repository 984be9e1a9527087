// Hunts: escapes that lose or merge texts, file names that some system refuses or takes for another, escapes that
// swallow the character behind them, decoders that accept what no encoder writes or touch their target when they fail.

#include "kiv/core/Buffer.h"
#include "kiv/core/String.h"

#include <gtest/gtest.h>
#include <random>

using namespace kiv;
using namespace std::string_view_literals;

namespace {

String validText(std::mt19937& random) {
    String text;
    static constexpr uint32_t codePoints[] = {0,    1,    '\n', '\r', '\t', '\\',   'x',    '0', '8',
                                              'n',  '%',  '.',  ' ',  'C',  'O',    'N',    '/', 0x7F,
                                              0x80, 0x85, 0x9F, 0xA0, 0xE9, 0x20AC, 0x1F600};
    for (size_t count = random() % 6; count > 0; --count)
        text.utf8_append(codePoints[random() % std::size(codePoints)]);
    return text;
}

String unescapedPercent(std::string_view text) {
    String result;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '%';
        result += isEscape ? static_cast<char>(std::stoul(std::string(text.substr(i + 1, 2)), nullptr, 16)) : text[i];
        if (isEscape) i += 2;
    }
    return result;
}

} // namespace

TEST(StringEscapes, EveryEscapeNamesItsCharacters) {
    EXPECT_EQ(String("<a href=\"x\">'&'</a>").escapeHtmlCharacters(),
              "&lt;a href=&quot;x&quot;&gt;&#39;&amp;&#39;&lt;/a&gt;");
    EXPECT_EQ(String("a\n\r\t\\\x1B\x7F\0\xC2\x85\xC3\xA9"sv).utf8_escape_controlcode(),
              "a\\n\\r\\t\\\\\\x1B\\x7F\\x00\\x85\xC3\xA9");
    EXPECT_EQ(String("a'\"$\\\n\0b\0007"sv).utf8_escape_php(), "a\\'\\\"\\$\\\\\\n\\0b\\0007"); // not the octal \07
    EXPECT_EQ(String("a-._~/ \xC3\xA9").encodeUrlBase16(), "a-._~%2F%20%C3%A9");
}

TEST(StringEscapes, FilePathsAreAcceptedByEverySystem) {
    const auto escaped = [](std::string_view name) { return String(name).utf8_escape_filepath(); };
    EXPECT_EQ(escaped("a<>:\"/\\|?*%b"), "a%3C%3E%3A%22%2F%5C%7C%3F%2A%25b");
    EXPECT_EQ(escaped("\x01\x7F\0\xC2\x85"sv), "%01%7F%00%C2%85");
    EXPECT_EQ(escaped("a. ."), "a. %2E");
    EXPECT_EQ(escaped(".."), ".%2E");
    EXPECT_EQ(escaped("na\xC3\xAFve.txt"), "na\xC3\xAFve.txt");
    for (const char* device :
         {"CON", "con", "nul.txt", "COM1", "lpt9.tar.gz", "aux .x", "COM\xC2\xB9", "COM\xB9", "CONIN$"})
        EXPECT_EQ(escaped(device)[0], '%') << device;
    for (const char* name : {"CONS", "COM", "COM10", "xCON", "", ".CON"}) EXPECT_EQ(escaped(name), name);
}

TEST(StringEscapes, WhatIsEscapedCanBeReadBack) {
    std::mt19937 random(4);
    for (int round = 0; round < 5000; ++round) {
        const String text = validText(random);
        ASSERT_EQ(unescapedPercent(text.utf8_escape_filepath()), text);
        ASSERT_EQ(unescapedPercent(text.encodeUrlBase16()), text);
        ASSERT_FALSE(text.encodeUrlBase16().utf8_contains_special_characters());
    }
}

TEST(StringCodecs, ReadBackWhatTheyWriteAndKeepTheTargetOfWhatTheyRefuse) {
    std::mt19937 random(5);
    for (size_t size = 0; size < 40; ++size) {
        String bytes(size, '\0');
        for (char& c : bytes) c = static_cast<char>(random());
        const ConstByteSpan span = bytes.getConstByteSpan();
        const auto check = [&](const String& text, const String& ofSpan, auto decode, auto toBuffer, auto sizeOf) {
            String back, itself = text;
            Buffer buffer;
            ASSERT_TRUE(text == ofSpan && (text.*sizeOf)() == size);
            ASSERT_TRUE((text.*decode)(back) && back == bytes && (text.*toBuffer)(buffer) && buffer == Buffer(span));
            ASSERT_TRUE((itself.*decode)(itself) && itself == bytes);
            const String bad = "!" + text;
            ASSERT_FALSE((bad.*decode)(back) || (bad.*toBuffer)(buffer)) << bad;
            ASSERT_TRUE(back == bytes && buffer == Buffer(span)) << bad;
        };
        check(bytes.encodeBase16(), String::encodeBase16FromBuffer(span), &String::decodeBase16,
              &String::decodeBase16toBuffer, &String::getDecodeBase16Size);
        check(bytes.encodeBase64(), String::encodeBase64FromBuffer(span), &String::decodeBase64,
              &String::decodeBase64toBuffer, &String::getDecodeBase64Size);
        check(bytes.encodeBase64crc(), String::encodeBase64crcFromBuffer(span), &String::decodeBase64crc,
              &String::decodeBase64crctoBuffer, &String::getDecodeBase64crcSize);
    }
}
