#include "Workload.h"

#include <openssl/evp.h>

using workload::Bytes;

namespace {

// The library's alphabet is the standard one, with padding; the work is the same.
[[maybe_unused]] const bool added = [] {
    workload::add(
        "base64", "openssl",
        [](const Bytes& in, std::string& text) {
            auto* out = reinterpret_cast<unsigned char*>(text.data());
            return static_cast<size_t>(EVP_EncodeBlock(out, in.data(), static_cast<int>(in.size())));
        },
        [](const std::string& text, Bytes& out) {
            const auto* in = reinterpret_cast<const unsigned char*>(text.data());
            return EVP_DecodeBlock(out.data(), in, static_cast<int>(text.size())) >= 0;
        });
    return true;
}();

} // namespace
