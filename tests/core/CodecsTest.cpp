// Hunts: wrong letters, texts that decode although no encoder writes them, wrong offsets of the first fault, sizes that
// wrap.
#include "kiv/core/Codecs.h"

#include <gtest/gtest.h>

#include <string>

using namespace kiv::internal;

namespace {

std::string encoded(uint64_t (*size)(uint64_t), void (*encode)(const uint8_t*, size_t, char*),
                    const std::string& bytes) {
    std::string text(size(bytes.size()), '!');
    encode(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), text.data());
    return text;
}

std::string base16(const std::string& bytes) {
    return encoded(encodedBase16Size, encodeBase16, bytes);
}
std::string base64(const std::string& bytes) {
    return encoded(encodedBase64Size, encodeBase64, bytes);
}
std::string base64crc(const std::string& bytes) {
    return encoded(encodedBase64crcSize, encodeBase64crc, bytes);
}

using Decoder = CodecResult (*)(const char*, size_t, uint8_t*);

void expectRefused(Decoder decode, const std::string& text, CodecError error, size_t offset) {
    std::string room(text.size(), '!');
    const CodecResult result = decode(text.data(), text.size(), reinterpret_cast<uint8_t*>(room.data()));
    EXPECT_EQ(result.error, error) << text;
    EXPECT_EQ(result.offset, offset) << text;
}

void expectDecoded(Decoder decode, const std::string& text, const std::string& bytes) {
    std::string room(bytes.size(), '!');
    EXPECT_TRUE(decode(text.data(), text.size(), reinterpret_cast<uint8_t*>(room.data()))) << text;
    EXPECT_EQ(room, bytes) << text;
}

} // namespace

TEST(Codecs, KnownTexts) {
    EXPECT_EQ(base16("\x01\xAB\xFF"), "01ABFF");
    expectDecoded(decodeBase16, "01aBfF", "\x01\xAB\xFF");
    const std::string texts[] = {"", "Zg", "Zm8", "Zm9v", "Zm9vYg", "Zm9vYmE", "Zm9vYmFy"};
    for (size_t n = 0; n < std::size(texts); ++n) {
        EXPECT_EQ(base64(std::string("foobar").substr(0, n)), texts[n]);
        expectDecoded(decodeBase64, texts[n], std::string("foobar").substr(0, n));
    }
    EXPECT_EQ(base64("\xFB\xEF\xFF"), "--__");
    // The published check value of CRC-32C over these digits is E3069283; 0x6D7C ends its complement 1CF96D7C.
    const std::string digits = "123456789";
    EXPECT_EQ(checksum24(reinterpret_cast<const uint8_t*>(digits.data()), digits.size()), 0xF96D7Cu);
    EXPECT_EQ(base64crc(digits), "fG35MTIzNDU2Nzg5");
    expectDecoded(decodeBase64crc, "fG35MTIzNDU2Nzg5", digits);
    expectDecoded(decodeBase64crc, base64crc(""), "");
}

TEST(Codecs, RefusalsNameTheFirstFault) {
    expectRefused(decodeBase16, "012", CodecError::Length, 2);
    expectRefused(decodeBase16, "01g2!!", CodecError::Character, 2);
    expectRefused(decodeBase16, "012g", CodecError::Character, 3);
    expectRefused(decodeBase64, "Zm9vY", CodecError::Length, 4);
    expectRefused(decodeBase64, "Zm9+Zm9/", CodecError::Character, 3);
    expectRefused(decodeBase64, "Zg==", CodecError::Character, 2);
    expectRefused(decodeBase64, "Zm9vY=", CodecError::Character, 5);
    expectRefused(decodeBase64, "Zh", CodecError::UnusedBits, 1);
    expectRefused(decodeBase64, "Zm9vYmF", CodecError::UnusedBits, 6);
    expectRefused(decodeBase64crc, "", CodecError::Length, 0);
    expectRefused(decodeBase64crc, "AAA", CodecError::Length, 2);
    expectRefused(decodeBase64crc, "AAAAA", CodecError::Length, 4);
    expectRefused(decodeBase64crc, "f=35MTIz", CodecError::Character, 1);
    expectRefused(decodeBase64crc, "fG35MT=z", CodecError::Character, 6);
    expectRefused(decodeBase64crc, "fG35MTIzNDU2Nzg4", CodecError::Checksum, 0);
}

TEST(Codecs, SizesDoNotWrapAndImpossibleLengthsGiveZero) {
    EXPECT_EQ(encodedBase64Size(536870912), 715827883u);
    EXPECT_EQ(encodedBase16Size(0x80000000), 0x100000000u);
    EXPECT_EQ(decodedBase16Size(3), 0u);
    EXPECT_EQ(decodedBase64Size(5), 0u);
    EXPECT_EQ(decodedBase64crcSize(3), 0u);
    EXPECT_EQ(decodedBase64crcSize(9), 0u);
    for (const uint64_t n : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 1000u}) {
        EXPECT_EQ(decodedBase16Size(encodedBase16Size(n)), n);
        EXPECT_EQ(decodedBase64Size(encodedBase64Size(n)), n);
        EXPECT_EQ(decodedBase64crcSize(encodedBase64crcSize(n)), n);
    }
}
