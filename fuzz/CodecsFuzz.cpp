// What a decoder accepts, the encoder writes again (base16 in upper case); every level agrees on what is refused, and
// where.
#include "kiv/core/Codecs.h"
#include "kiv/core/Simd.h"

#include <cctype>
#include <cstdlib>
#include <memory>
#include <string>

using namespace kiv::internal;

namespace {

using Decode = CodecResult (*)(const char*, size_t, uint8_t*);
using Encode = void (*)(const uint8_t*, size_t, char*);

void check(const std::string& text, uint64_t decodedSize, Decode decode, Encode encode, bool foldsCase) {
    const std::unique_ptr<uint8_t[]> bytes(new uint8_t[decodedSize]); // exactly: writing beyond is a fault
    setSimdLevel(SimdLevel::Portable);
    const CodecResult expected = decode(text.data(), text.size(), bytes.get());
    for (const SimdLevel level : {SimdLevel::Portable, SimdLevel::Sse4, SimdLevel::Avx2}) {
        setSimdLevel(level);
        const CodecResult result = decode(text.data(), text.size(), bytes.get());
        if (result.error != expected.error || result.offset != expected.offset) std::abort();
        if (!result && result.offset >= text.size() && !text.empty()) std::abort();
        if (!result) continue;
        std::string again(text.size(), '\0');
        encode(bytes.get(), decodedSize, again.data());
        for (size_t i = 0; i < text.size(); ++i) {
            if (again[i] != (foldsCase ? std::toupper(static_cast<unsigned char>(text[i])) : text[i])) std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    check(text, decodedBase16Size(size), decodeBase16, encodeBase16, true);
    check(text, decodedBase64Size(size), decodeBase64, encodeBase64, false);
    check(text, decodedBase64crcSize(size), decodeBase64crc, encodeBase64crc, false);
    return 0;
}
