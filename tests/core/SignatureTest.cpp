#include "kiv/core/Signature.h"
#include "kiv/core/Codecs.h"
#include "kiv/core/Sha256.h"

#include <gtest/gtest.h>

#include <string>

namespace kiv {
namespace {

template <class Bytes>
Bytes bytesOf(const std::string& hex) {
    Bytes bytes;
    EXPECT_EQ(hex.size(), 2 * bytes.size());
    EXPECT_TRUE(internal::decodeBase16(hex.data(), hex.size(), bytes.data()));
    return bytes;
}

ConstByteSpan spanOf(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), static_cast<unsigned>(text.size())};
}

// FIPS 180-2; the last one comes in pieces that are no multiples of a block.
TEST(Sha256, KnownDigestsInPiecesAndOneAfterAnother) {
    Sha256 hash;
    EXPECT_EQ(Sha256::toText(hash.finish()), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    hash.add("abc", 3);
    const Sha256::Digest abc = hash.finish();
    EXPECT_EQ(Sha256::toText(abc), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const std::string million(1000000, 'a');
    for (size_t at = 0, step = 1; at < million.size(); at += step, step = std::min(2 * step + 1, million.size() - at))
        hash.add(million.data() + at, step);
    EXPECT_EQ(Sha256::toText(hash.finish()), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");

    Sha256::Digest read{};
    for (const char* text : {"", "ba78", "zz7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"})
        EXPECT_FALSE(Sha256::fromText(text, read)) << text;
    EXPECT_EQ(read, Sha256::Digest());
    EXPECT_TRUE(Sha256::fromText(Sha256::toText(abc).utf8_uppercase(), read) && read == abc);
}

// RFC 8032, 7.1, tests 2 and 3.
TEST(Signature, KnownSignaturesAndWhatTheyDoNotFit) {
    const auto secret =
        bytesOf<Signature::SecretKey>("4ccd089b28ff96da9db6c346ec114e0f5b8a319f35aba624da8cf6ed4fb8a6fb");
    const Signature::PublicKey key = Signature::getPublicKey(secret);
    EXPECT_EQ(key, bytesOf<Signature::PublicKey>("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c"));
    const Signature::Bytes signature = Signature::sign(spanOf("\x72"), secret);
    EXPECT_EQ(signature, bytesOf<Signature::Bytes>("92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
                                                   "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00"));
    EXPECT_TRUE(Signature::verify(signature, spanOf("\x72"), key));
    EXPECT_FALSE(Signature::verify(signature, spanOf("\x73"), key));
    EXPECT_FALSE(Signature::verify(signature, {}, key));
    EXPECT_FALSE(Signature::verify({}, spanOf("\x72"), key));

    const Signature::SecretKey other = Signature::createSecretKey();
    EXPECT_NE(other, Signature::createSecretKey());
    EXPECT_FALSE(Signature::verify(signature, spanOf("\x72"), Signature::getPublicKey(other)));
    EXPECT_TRUE(Signature::verify(Signature::sign({}, other), {}, Signature::getPublicKey(other)));
}

} // namespace
} // namespace kiv
