// Hunts: wrong letters, texts that decode although no encoder writes them, wrong offsets of the first fault, sizes that
// wrap; vector kernels that differ from the definition of the codecs, miss a foreign character in any place, or reach
// beyond their input or output.
#include "tests/core/LevelTest.h"

#include "kiv/core/Codecs.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

using namespace kiv::internal;

namespace {

using Decoder = CodecResult (*)(const char*, size_t, uint8_t*);

// Bit by bit, most significant first; the last character is filled with zeros.
std::string definedText(const std::string& bytes, unsigned bitsPerCharacter, const char* alphabet) {
    std::string text;
    unsigned bits = 0, held = 0;
    for (const char byte : bytes) {
        bits = bits << 8 | static_cast<unsigned char>(byte);
        for (held += 8; held >= bitsPerCharacter; held -= bitsPerCharacter) {
            text += alphabet[bits >> (held - bitsPerCharacter) & ((1u << bitsPerCharacter) - 1)];
        }
    }
    if (held != 0) text += alphabet[bits << (bitsPerCharacter - held) & ((1u << bitsPerCharacter) - 1)];
    return text;
}

constexpr char base16Alphabet[] = "0123456789ABCDEF";
constexpr char base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

// Input and output lie in heap blocks of exactly their size, so that an address sanitizer sees whatever reaches beyond.
std::string decodedExactly(Decoder decode, const std::string& text, size_t size, CodecResult& result) {
    const std::unique_ptr<char[]> in(new char[text.size()]);
    const std::unique_ptr<uint8_t[]> out(new uint8_t[size]);
    std::copy(text.begin(), text.end(), in.get());
    result = decode(in.get(), text.size(), out.get());
    return std::string(out.get(), out.get() + size);
}

std::string encodedExactly(void (*encode)(const uint8_t*, size_t, char*), const std::string& bytes, size_t size) {
    const std::unique_ptr<uint8_t[]> in(new uint8_t[bytes.size()]);
    const std::unique_ptr<char[]> out(new char[size]);
    std::copy(bytes.begin(), bytes.end(), in.get());
    encode(in.get(), bytes.size(), out.get());
    return std::string(out.get(), out.get() + size);
}

void expectDecoded(Decoder decode, const std::string& text, const std::string& bytes) {
    CodecResult result;
    EXPECT_EQ(decodedExactly(decode, text, bytes.size(), result), bytes) << text;
    EXPECT_TRUE(result) << text;
}

class CodecsLevels : public LevelTest {};
INSTANTIATE_TEST_SUITE_P(, CodecsLevels, allLevels(), levelName);

} // namespace

TEST_P(CodecsLevels, EverySizeGoesThereAndBack) {
    std::mt19937 random(20240229);
    for (size_t round = 0; round < 800; ++round) {
        const size_t size = round % 201;
        std::string bytes(size, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        std::string hex = definedText(bytes, 4, base16Alphabet);
        const std::string text = definedText(bytes, 6, base64Alphabet);
        EXPECT_EQ(encodedExactly(encodeBase16, bytes, encodedBase16Size(size)), hex);
        EXPECT_EQ(encodedExactly(encodeBase64, bytes, encodedBase64Size(size)), text);
        const std::string crc = encodedExactly(encodeBase64crc, bytes, encodedBase64crcSize(size));
        EXPECT_EQ(crc.substr(4), text);
        for (char& digit : hex) digit = digit >= 'A' && random() % 2 ? static_cast<char>(digit - 'A' + 'a') : digit;
        expectDecoded(decodeBase16, hex, bytes); // in either case
        expectDecoded(decodeBase64, text, bytes);
        expectDecoded(decodeBase64crc, crc, bytes);
        EXPECT_TRUE(decodedBase16Size(hex.size()) == size && decodedBase64Size(text.size()) == size);
        EXPECT_EQ(decodedBase64crcSize(crc.size()), size);
    }
}

TEST_P(CodecsLevels, EveryCharacterInEveryPlaceIsJudged) {
    const std::string bytes(96, '\x5A');
    const std::string hex = definedText(bytes, 4, base16Alphabet), text = definedText(bytes, 6, base64Alphabet);
    const auto expectJudged = [](Decoder decode, std::string chars, size_t size, const std::string& alphabet) {
        for (size_t at = 0; at < chars.size(); ++at) {
            const char right = chars[at];
            for (int c = 0; c < 256; ++c) {
                chars[at] = static_cast<char>(c);
                CodecResult result;
                decodedExactly(decode, chars, size, result);
                const bool known = alphabet.find(chars[at]) != std::string::npos;
                ASSERT_EQ(result.error, known ? CodecError::None : CodecError::Character) << c << " at " << at;
                ASSERT_EQ(result.offset, known ? 0 : at) << c;
            }
            chars[at] = right;
        }
    };
    expectJudged(decodeBase16, hex, bytes.size(), std::string(base16Alphabet) + "abcdef");
    expectJudged(decodeBase64, text, bytes.size(), base64Alphabet);
}

TEST(Codecs, KnownTexts) {
    EXPECT_EQ(encodedExactly(encodeBase64, "foob\xFB\xEF\xFF", 10), "Zm9vYvvv_w");
    // The published check value of CRC-32C over these digits is E3069283; 0x6D7C ends its complement 1CF96D7C.
    const std::string digits = "123456789";
    EXPECT_EQ(checksum24(reinterpret_cast<const uint8_t*>(digits.data()), digits.size()), 0xF96D7Cu);
    EXPECT_EQ(encodedExactly(encodeBase64crc, digits, 16), "fG35MTIzNDU2Nzg5");
}

TEST(Codecs, RefusalsNameTheFirstFault) {
    const auto refused = [](Decoder decode, const std::string& text, CodecError error, size_t offset) {
        CodecResult result;
        decodedExactly(decode, text, text.size(), result);
        EXPECT_TRUE(result.error == error && result.offset == offset) << text << " " << result.offset;
    };
    refused(decodeBase16, "012", CodecError::Length, 2), refused(decodeBase16, "01g2!!", CodecError::Character, 2);
    refused(decodeBase16, "012g", CodecError::Character, 3), refused(decodeBase64, "Zm9vY", CodecError::Length, 4);
    refused(decodeBase64, "Zm9+Zm9/", CodecError::Character, 3);
    refused(decodeBase64, "Zg==", CodecError::Character, 2), refused(decodeBase64, "Zm9vY=", CodecError::Character, 5);
    refused(decodeBase64, "Zh", CodecError::UnusedBits, 1), refused(decodeBase64, "Zm9vYmF", CodecError::UnusedBits, 6);
    refused(decodeBase64crc, "", CodecError::Length, 0), refused(decodeBase64crc, "AAA", CodecError::Length, 2);
    refused(decodeBase64crc, "AAAAA", CodecError::Length, 4);
    refused(decodeBase64crc, "f=35MTIz", CodecError::Character, 1);
    refused(decodeBase64crc, "fG35MT=z", CodecError::Character, 6);
    refused(decodeBase64crc, "fG35MTIzNDU2Nzg4", CodecError::Checksum, 0);
}

TEST(Codecs, SizesDoNotWrapAndImpossibleLengthsGiveZero) {
    EXPECT_TRUE(encodedBase64Size(536870912) == 715827883u && encodedBase16Size(0x80000000) == 0x100000000u);
    EXPECT_EQ(decodedBase16Size(3) + decodedBase64Size(5) + decodedBase64crcSize(3) + decodedBase64crcSize(9), 0u);
}
