#include "kiv/core/Charsets.h"
#include "kiv/core/String.h"
#include "kiv/logging/MessageStream.h"

namespace kiv {

namespace {

using Convert = bool(std::string_view charset, std::string_view in, std::string& out);

bool converted(Convert& convert, const char* refusal, std::string_view charset, std::string& text) {
    std::string result;
    if (!convert(charset, text, result)) {
        logging::MessageStream(3, 2) << refusal << " " << charset;
        return false;
    }
    text = std::move(result);
    return true;
}

constexpr const char* refusedSource = "unsupported charset conversion from";
constexpr const char* refusedTarget = "unsupported charset conversion to";

} // namespace

bool String::utf8_convert_from_charset(TextArg charset) {
    return converted(internal::charsetToUtf8, refusedSource, charset, m_text);
}

bool String::utf8_convert_to_charset(TextArg charset) {
    return converted(internal::utf8ToCharset, refusedTarget, charset, m_text);
}

bool String::utf8_init_charset_conversion(TextArg charset) {
    std::string nothing;
    return converted(internal::charsetToUtf8, refusedSource, charset, nothing) &&
           converted(internal::utf8ToCharset, refusedTarget, charset, nothing);
}

} // namespace kiv
