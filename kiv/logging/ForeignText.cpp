#include "kiv/logging/ForeignText.h"

#include "kiv/core/Utf8.h"

namespace kiv::logging {
namespace {

// What messages are searched for, wherever it stands in them.
constexpr std::string_view effectiveTags[] = {"[VERBOSE]", "[SUPPORT]"};

bool hasControlCode(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c == 0x7F) return true;
        // 0x80 to 0x9F, as UTF-8 has them
        if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) return true;
    }
    return false;
}

} // namespace

String foreignText(std::string_view text) {
    String shown(text);
    if (hasControlCode(text) || !kiv::internal::validateUtf8(text.data(), text.size()))
        shown = shown.utf8_escape_controlcode();
    for (const std::string_view tag : effectiveTags) {
        for (size_t at = 0; (at = shown.find(tag, at)) != String::npos; at += tag.size()) {
            shown[at] = '(';
            shown[at + tag.size() - 1] = ')';
        }
    }
    return shown;
}

} // namespace kiv::logging
