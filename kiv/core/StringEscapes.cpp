#include "kiv/core/String.h"

#include "kiv/core/Utf8.h"

#include <algorithm>

namespace kiv {

namespace {

constexpr std::string_view hexDigits = "0123456789ABCDEF";

void appendHex(String& out, std::string_view mark, uint32_t byte) {
    out.append(mark).append(hexDigits[byte >> 4 & 15]).append(hexDigits[byte & 15]);
}

void appendPercent(String& out, uint32_t codePoint) {
    char bytes[4];
    const unsigned size = internal::encodeUtf8(codePoint, bytes);
    for (unsigned i = 0; i < size; ++i) appendHex(out, "%", static_cast<unsigned char>(bytes[i]));
}

bool isControl(uint32_t codePoint) {
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

bool isUnreservedInUrls(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

// Calls write(out, codePoint, rest) for each code point of the text; `rest` is the text behind it.
template <class Write>
String rewritten(std::string_view text, Write write) {
    String out;
    out.reserve(text.size());
    for (const char *it = text.data(), *const end = it + text.size(); it != end;) {
        const uint32_t codePoint = internal::lenientDecode(it, end);
        write(out, codePoint, std::string_view(it, static_cast<size_t>(end - it)));
    }
    return out;
}

// Windows takes these for devices in every folder, in any case, whatever extension follows.
bool isDeviceName(std::string_view fileName) {
    std::string_view stem = fileName.substr(0, fileName.find('.'));
    stem = stem.substr(0, stem.find_last_not_of(' ') + 1);
    std::string name(stem);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 0x20) : c; });
    for (const std::string_view device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$"})
        if (name == device) return true;
    if (!name.starts_with("COM") && !name.starts_with("LPT")) return false;
    const char *it = name.data() + 3, *const end = name.data() + name.size();
    if (it == end) return false;
    const uint32_t port = internal::lenientDecode(it, end);
    const bool isSuperscript = port == 0xB9 || port == 0xB2 || port == 0xB3; // they count, too
    return it == end && ((port >= '0' && port <= '9') || isSuperscript);
}

} // namespace

String String::escapeHtmlCharacters() const {
    String out;
    out.reserve(m_text.size());
    for (const char c : m_text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

String String::utf8_escape_controlcode() const {
    return rewritten(m_text, [](String& out, uint32_t codePoint, std::string_view) {
        switch (codePoint) {
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\\':
            out += "\\\\";
            break;
        default:
            if (isControl(codePoint))
                appendHex(out, "\\x", codePoint);
            else
                out.utf8_append(codePoint);
        }
    });
}

String String::utf8_escape_filepath() const {
    const bool isDevice = isDeviceName(m_text);
    return rewritten(m_text, [isDevice](String& out, uint32_t codePoint, std::string_view rest) {
        const bool isReserved =
            codePoint < 0x80 &&
            std::string_view("<>:\"/\\|?*%").find(static_cast<char>(codePoint)) != std::string_view::npos;
        const bool isDropped = rest.empty() && (codePoint == '.' || codePoint == ' ');
        if (isReserved || isDropped || isControl(codePoint) || (isDevice && out.empty()))
            appendPercent(out, codePoint);
        else
            out.utf8_append(codePoint);
    });
}

String String::utf8_escape_php() const {
    return rewritten(m_text, [](String& out, uint32_t codePoint, std::string_view rest) {
        switch (codePoint) {
        // Up to three octal digits belong to the escape: none of the text's own may follow a shorter one.
        case 0:
            out += !rest.empty() && rest[0] >= '0' && rest[0] <= '7' ? "\\000" : "\\0";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\\':
        case '\'':
        case '"':
        case '$':
            out += '\\';
            [[fallthrough]];
        default:
            out.utf8_append(codePoint);
        }
    });
}

String String::encodeUrlBase16() const {
    String out;
    out.reserve(m_text.size());
    for (const char c : m_text) {
        if (isUnreservedInUrls(c))
            out += c;
        else
            appendHex(out, "%", static_cast<unsigned char>(c));
    }
    return out;
}

} // namespace kiv
