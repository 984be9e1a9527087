#include "kiv/platform/Charset.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <iconv.h>

namespace kiv::platform {

namespace {

constexpr const char* nativeUtf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

// iconv reads an empty name as the locale's charset, and orders for itself behind a slash.
bool isPlainName(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               std::string_view("-_.:+()").find(c) != std::string_view::npos;
    });
}

class Converter {
public:
    Converter(const std::string& to, const std::string& from) {
        if (isPlainName(to) && isPlainName(from)) m_handle = ::iconv_open(to.c_str(), from.c_str());
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() {
        if (isOpen()) ::iconv_close(m_handle);
    }

    bool isOpen() const { return m_handle != closed(); }

    // Converts as much as possible, from `in` on, and appends it; returns what is left of `in`, which then begins with
    // something that can't be converted.
    std::string_view convert(std::string_view in, std::string& out) {
        char* from = const_cast<char*>(in.data()); // iconv's signature; it only reads
        size_t fromLeft = in.size();
        run(&from, &fromLeft, out);
        return in.substr(in.size() - fromLeft);
    }

    // Leaves whatever state the charset has.
    void finish(std::string& out) { run(nullptr, nullptr, out); }

private:
    static iconv_t closed() { return reinterpret_cast<iconv_t>(-1); }

    void run(char** from, size_t* fromLeft, std::string& out) {
        for (bool isFull = true; isFull;) {
            char piece[4096];
            char* to = piece;
            size_t toLeft = sizeof piece;
            isFull = ::iconv(m_handle, from, fromLeft, &to, &toLeft) == static_cast<size_t>(-1) && errno == E2BIG;
            out.append(piece, sizeof piece - toLeft);
        }
    }

    iconv_t m_handle = closed();
};

std::string_view bytesOf(std::u16string_view units) {
    return {reinterpret_cast<const char*>(units.data()), units.size() * sizeof(char16_t)};
}

} // namespace

bool charsetToUtf16(const SystemCharset& charset, std::string_view bytes, std::u16string& out) {
    Converter converter(nativeUtf16, charset.name);
    if (!converter.isOpen()) return false;
    std::string units;
    while (!(bytes = converter.convert(bytes, units)).empty()) {
        units += bytesOf(u"\uFFFD");
        bytes.remove_prefix(1);
    }
    converter.finish(units);
    out.resize(units.size() / sizeof(char16_t));
    units.copy(reinterpret_cast<char*>(out.data()), units.size());
    return true;
}

bool utf16ToCharset(const SystemCharset& charset, std::u16string_view text, std::string& out) {
    Converter converter(charset.name, nativeUtf16);
    if (!converter.isOpen()) return false;
    out.clear();
    for (std::string_view left; !(left = converter.convert(bytesOf(text), out)).empty();) {
        text = text.substr(text.size() - left.size() / sizeof(char16_t));
        const bool isPair = text[0] >= 0xD800 && text[0] < 0xDC00;
        text.remove_prefix(isPair ? 2 : 1);
        converter.convert(bytesOf(u"?"), out);
    }
    converter.finish(out);
    return true;
}

} // namespace kiv::platform
