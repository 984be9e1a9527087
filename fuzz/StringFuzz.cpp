#include "kiv/core/String.h"

#include <cstdlib>

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

} // namespace

// The first byte tells where the input is divided into a text and an argument.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const kiv::String all(reinterpret_cast<const char*>(data + 1), size - 1);
    const size_t at = data[0] % size;
    const kiv::String text = all.substr(0, at), other = all.substr(at);

    require(text.utf8_fix().validate() && text.utf8_lowercase().validate() && text.utf8_uppercase().validate());
    require(text.utf8_substr(0, at / 2) + text.utf8_substr(at / 2) == text);
    require(text.utf8_size() == text.utf8_to_unicode().size());
    require(!text.encodeUrlBase16().utf8_contains_special_characters());
    require(!other.utf8_escape_filepath().contains('/') && other.utf8_escape_php().validate());
    require(kiv::String::natural_compare(text, other) == -kiv::String::natural_compare(other, text));

    // Equal escapes come from equal texts; broken bytes are repaired first.
    const kiv::String escapedText = text.utf8_escape_controlcode(), escapedOther = other.utf8_escape_controlcode();
    require((escapedText == escapedOther) == (text.utf8_to_unicode() == other.utf8_to_unicode()));

    kiv::String joined;
    for (const kiv::String& piece : text.splitByString(other)) joined.append(piece).append(other);
    require(text.empty() || joined == text + other);
    kiv::String edited = text;
    edited.replace_all(other, text);
    require(edited == text.replace_all_copy(other, text));
    return 0;
}
