#include "kiv/core/String.h"

#include "kiv/core/Buffer.h"
#include "kiv/core/Codecs.h"

namespace kiv {

namespace {

const uint8_t* bytesOf(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

using Encode = void(const uint8_t* bytes, size_t n, char* out);
using Decode = internal::CodecResult(const char* text, size_t chars, uint8_t* out);

String encoded(Encode& encode, uint64_t encodedSize, const uint8_t* bytes, size_t size) {
    std::string text(static_cast<size_t>(encodedSize), '\0');
    encode(bytes, size, text.data());
    return text;
}

constexpr size_t largestText = 0x7FFFFFFF;

bool decode(Decode& decoder, uint64_t decodedSize, const std::string& text, String& out) {
    if (text.size() > largestText) return false;
    std::string bytes(static_cast<size_t>(decodedSize), '\0');
    if (!decoder(text.data(), text.size(), reinterpret_cast<uint8_t*>(bytes.data()))) return false;
    out = std::move(bytes);
    return true;
}

bool decode(Decode& decoder, uint64_t decodedSize, const std::string& text, Buffer& out) {
    if (text.size() > largestText) return false;
    Buffer bytes(static_cast<unsigned>(decodedSize));
    if (!decoder(text.data(), text.size(), bytes.getBytePointer())) return false;
    out = std::move(bytes);
    return true;
}

} // namespace

String String::encodeBase16() const {
    return encoded(internal::encodeBase16, internal::encodedBase16Size(size()), bytesOf(m_text), size());
}

String String::encodeBase64() const {
    return encoded(internal::encodeBase64, internal::encodedBase64Size(size()), bytesOf(m_text), size());
}

String String::encodeBase64crc() const {
    return encoded(internal::encodeBase64crc, internal::encodedBase64crcSize(size()), bytesOf(m_text), size());
}

String String::encodeBase16FromBuffer(const ConstByteSpan& bytes) {
    return encoded(internal::encodeBase16, internal::encodedBase16Size(bytes.getSize()), bytes.getBytePointer(),
                   bytes.getSize());
}

String String::encodeBase64FromBuffer(const ConstByteSpan& bytes) {
    return encoded(internal::encodeBase64, internal::encodedBase64Size(bytes.getSize()), bytes.getBytePointer(),
                   bytes.getSize());
}

String String::encodeBase64crcFromBuffer(const ConstByteSpan& bytes) {
    return encoded(internal::encodeBase64crc, internal::encodedBase64crcSize(bytes.getSize()), bytes.getBytePointer(),
                   bytes.getSize());
}

bool String::decodeBase16(String& out) const {
    return decode(internal::decodeBase16, getDecodeBase16Size(), m_text, out);
}

bool String::decodeBase64(String& out) const {
    return decode(internal::decodeBase64, getDecodeBase64Size(), m_text, out);
}

bool String::decodeBase64crc(String& out) const {
    return decode(internal::decodeBase64crc, getDecodeBase64crcSize(), m_text, out);
}

bool String::decodeBase16toBuffer(Buffer& out) const {
    return decode(internal::decodeBase16, getDecodeBase16Size(), m_text, out);
}

bool String::decodeBase64toBuffer(Buffer& out) const {
    return decode(internal::decodeBase64, getDecodeBase64Size(), m_text, out);
}

bool String::decodeBase64crctoBuffer(Buffer& out) const {
    return decode(internal::decodeBase64crc, getDecodeBase64crcSize(), m_text, out);
}

uint64_t String::getDecodeBase16Size() const noexcept {
    return internal::decodedBase16Size(size());
}

uint64_t String::getDecodeBase64Size() const noexcept {
    return internal::decodedBase64Size(size());
}

uint64_t String::getDecodeBase64crcSize() const noexcept {
    return internal::decodedBase64crcSize(size());
}

} // namespace kiv
