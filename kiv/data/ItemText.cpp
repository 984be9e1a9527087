// Debug text, path text and the base16 and base64 texts of items.

#include "kiv/core/Codecs.h"
#include "kiv/data/Item.h"

#include <fmt/format.h>

#include <iterator>

namespace kiv {

namespace {

using Text = fmt::memory_buffer;

void append(Text& out, std::string_view text) {
    out.append(text.data(), text.data() + text.size());
}

struct TextForm {
    std::string_view open, close, separator, stringOpen, nestedOpen, nestedClose;
};
constexpr TextForm debugForm{"<", ">", "", "STR:", "{", "}"};
constexpr TextForm pathForm{"", "", ";", "", "{", "}"};

void writeElements(Text& out, const Item& item, const TextForm& form, int depth);

// False, and nothing written, where the element has no text.
bool writeElement(Text& out, Item::Iterator& it, const TextForm& form, int depth) {
    long long integer;
    double number;
    unsigned size;
    GUID guid;
    Item nested;
    const ValueType type = it.getType();
    if (it.asInteger(integer)) {
        fmt::format_to(std::back_inserter(out), "INT:{}", integer);
    } else if (it.asFloat(number)) {
        fmt::format_to(std::back_inserter(out), "FLT:{:.6g}", number);
    } else if (const char* text = it.asWeakCStr()) {
        append(out, type == ValueType::Prefix ? "PREFIX:" : form.stringOpen);
        append(out, text);
    } else if (it.asWeakBuffer(size)) {
        fmt::format_to(std::back_inserter(out), "BUF:{}", size);
    } else if (depth < Item::maximumDepth && it.asWeakSubItem(nested)) {
        append(out, "ITEM:");
        append(out, form.nestedOpen);
        writeElements(out, nested, form, depth + 1);
        append(out, form.nestedClose);
    } else if (it.asGUID(guid)) {
        append(out, "GUID:");
        append(out, guid.toString());
    } else {
        switch (type) {
        case ValueType::NIL:
            append(out, "NIL");
            break;
        case ValueType::True:
            append(out, "BOOL:TRUE");
            break;
        case ValueType::False:
            append(out, "BOOL:FALSE");
            break;
        case ValueType::Meta:
            append(out, "META");
            break;
        case ValueType::End:
            append(out, "END");
            break;
        default:
            return false;
        }
        it.skip();
    }
    return true;
}

void writeElements(Text& out, const Item& item, const TextForm& form, int depth) {
    auto it = item.getIterator();
    const auto left = [&] { return item.getPlainSize() - static_cast<unsigned>(it.getOffset()); };
    while (left() != 0) {
        if (it.getOffset() != 0) append(out, form.separator);
        append(out, form.open);
        const bool written = writeElement(out, it, form, depth);
        if (!written) fmt::format_to(std::back_inserter(out), "TRAIL:{}", left());
        append(out, form.close);
        if (!written) return;
    }
}

String encode(const Item& item, uint64_t size, void (*encoder)(const uint8_t*, size_t, char*)) {
    String text(static_cast<size_t>(size), '\0');
    encoder(item.getPlainBytePointer(), item.getPlainSize(), text.data());
    return text;
}

const char* reasonOf(internal::CodecError error) {
    switch (error) {
    case internal::CodecError::Length:
        return "no bytes are encoded by a text of this length";
    case internal::CodecError::Character:
        return "a character outside the alphabet";
    case internal::CodecError::UnusedBits:
        return "the last character has bits that belong to no byte";
    case internal::CodecError::Checksum:
        return "the checksum does not match";
    default:
        return "";
    }
}

bool decode(Item& item, const String& text, uint64_t size, Item::TextError* error,
            internal::CodecResult (*decoder)(const char*, size_t, uint8_t*)) {
    if (size > Item::maximumSize) {
        if (error) *error = {Item::maximumSize, "more bytes than an item can hold"};
        return false;
    }
    Buffer bytes(static_cast<unsigned>(size));
    const internal::CodecResult result = decoder(text.data(), text.size(), bytes.getBytePointer());
    if (!result) {
        if (error) *error = {result.offset, reasonOf(result.error)};
        return false;
    }
    item.setPlain(bytes.getConstByteSpan());
    return true;
}

} // namespace

String Item::asString() const {
    Text out;
    append(out, "{");
    writeElements(out, *this, debugForm, 0);
    append(out, "}");
    return String(out.data(), out.size());
}

String Item::asBrowsableString() const {
    Text out;
    writeElements(out, *this, pathForm, 0);
    return String(out.data(), out.size());
}

String Item::getBase16() const {
    return encode(*this, internal::encodedBase16Size(m_size), internal::encodeBase16);
}

String Item::getBase64() const {
    return encode(*this, internal::encodedBase64Size(m_size), internal::encodeBase64);
}

String Item::getBase64crc() const {
    return encode(*this, internal::encodedBase64crcSize(m_size), internal::encodeBase64crc);
}

bool Item::setBase16(const String& text, TextError* error) {
    return decode(*this, text, internal::decodedBase16Size(text.size()), error, internal::decodeBase16);
}

bool Item::setBase64(const String& text, TextError* error) {
    return decode(*this, text, internal::decodedBase64Size(text.size()), error, internal::decodeBase64);
}

bool Item::setBase64crc(const String& text, TextError* error) {
    return decode(*this, text, internal::decodedBase64crcSize(text.size()), error, internal::decodeBase64crc);
}

} // namespace kiv
