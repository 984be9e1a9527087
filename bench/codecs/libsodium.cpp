#include "Workload.h"

#include <sodium.h>

using workload::Bytes;

namespace {

[[maybe_unused]] const bool added = [] {
    workload::add(
        "base64", "libsodium",
        [](const Bytes& in, std::string& text) {
            sodium_bin2base64(text.data(), text.size(), in.data(), in.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING);
            return sodium_base64_encoded_len(in.size(), sodium_base64_VARIANT_URLSAFE_NO_PADDING) - 1;
        },
        [](const std::string& text, Bytes& out) {
            size_t written = 0;
            return sodium_base642bin(out.data(), out.size(), text.data(), text.size(), nullptr, &written, nullptr,
                                     sodium_base64_VARIANT_URLSAFE_NO_PADDING) == 0;
        });
    workload::add(
        "base16", "libsodium",
        [](const Bytes& in, std::string& text) {
            sodium_bin2hex(text.data(), text.size(), in.data(), in.size());
            return 2 * in.size();
        },
        [](const std::string& text, Bytes& out) {
            size_t written = 0;
            return sodium_hex2bin(out.data(), out.size(), text.data(), text.size(), nullptr, &written, nullptr) == 0;
        });
    return true;
}();

} // namespace
