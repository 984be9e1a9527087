// Items as JSON. Every value has its own JSON form, those that JSON lacks an object of one member named "$...".

#include "kiv/core/Codecs.h"
#include "kiv/core/Utf8.h"
#include "kiv/data/Item.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kiv {

namespace {

constexpr size_t maximumTextSize = size_t{64} << 20;

bool isValidUtf8(const char* text) {
    return internal::validateUtf8(text, std::strlen(text));
}

// ---- The forms "$..." of values that JSON lacks.

bool decodeBase64Text(std::string_view text, Buffer& out) {
    out.resize(static_cast<unsigned>(internal::decodedBase64Size(text.size())));
    return bool(internal::decodeBase64(text.data(), text.size(), out.getBytePointer()));
}

// The value of an object of one member, when it is one of the "$..." forms.
bool readSpecial(std::string_view name, const Item& value, Item& out) {
    Item::Iterator it = value.getIterator();
    if (!name.starts_with('$') || it.getType() != ValueType::String) return false;
    const std::string_view text(it.asWeakCStr());
    if (name == "$prefix") {
        out.addPrefix(text.data());
        return true;
    }
    if (name == "$guid") {
        GUID guid;
        if (!GUID::fromString(text, guid)) return false;
        out.addGUID(guid);
        return true;
    }
    if (name == "$float") {
        if (text != "nan" && text != "inf" && text != "-inf") return false;
        out.addFloat(text == "nan" ? NAN : text == "inf" ? INFINITY : -INFINITY);
        return true;
    }
    if (name == "$mark") {
        const auto code = text == "meta"       ? ValueType::Meta
                          : text == "wildcard" ? ValueType::Wildcard
                          : text == "end"      ? ValueType::End
                                               : ValueType::Invalid;
        const auto byte = static_cast<uint8_t>(code);
        if (code != ValueType::Invalid) out.setPlain(ConstByteSpan(&byte, 1));
        return code != ValueType::Invalid;
    }
    Buffer bytes;
    if (!decodeBase64Text(text, bytes)) return false;
    if (name == "$buffer") {
        out.addBuffer(bytes);
    } else if (name == "$pointer") {
        out.addPointer(bytes.getBytePointer(), bytes.getSize());
    } else if (name == "$referee") {
        out.addReferee(bytes.getBytePointer(), bytes.getSize());
    } else if (name == "$item") {
        const Item whole(Item::ExternalBufferMode(), bytes.getConstByteSpan());
        if (whole.empty() || whole.getIterator().getValueSize() != whole.getPlainSize()) return false;
        out.setPlain(whole);
    } else {
        return false;
    }
    return true;
}

// ---- Writing.

class JSONWriter {
public:
    explicit JSONWriter(bool pretty) : m_pretty(pretty) {}

    void writeItem(const Item& item) {
        Item::Iterator it = item.getIterator();
        const bool single = it.hasNextElement() && it.getValueSize() == decodableSize(item);
        if (single) {
            writeValue(it);
        } else {
            writeArray(item);
        }
    }
    String take() const { return String(m_out.data(), m_out.size()); }

private:
    static unsigned decodableSize(const Item& item) {
        Item::Iterator it = item.getIterator();
        it.skipToEnd();
        return static_cast<unsigned>(it.getOffset());
    }
    static bool isDecodable(const Item& item) { return decodableSize(item) == item.getPlainSize(); }

    // Whether an object says it all: names in UTF-8, each once, and not to be mistaken for one of the "$..." forms.
    static bool isPlainTable(const Item& pairs) {
        std::unordered_set<std::string_view> names;
        Item::Iterator it = pairs.getIterator();
        while (it.getType() == ValueType::String) {
            const char* name = it.asWeakCStr();
            if (!names.insert(name).second || !isValidUtf8(name) || !it.hasNextElement()) return false;
            it.skip(it.getValueSize() == it.getSize() ? 1 : 2);
        }
        return it.getOffset() == static_cast<int>(pairs.getPlainSize()) && !isMistakable(pairs, names.size());
    }

    static bool isMistakable(const Item& pairs, size_t names) {
        Item::Iterator it = pairs.getIterator();
        const char* name = names == 1 ? it.asWeakCStr() : "";
        Item value, read;
        return *name == '$' && it.asWeakItemView(value) && readSpecial(name, value, read);
    }

    void put(std::string_view text) { m_out.append(text.data(), text.data() + text.size()); }
    void putText(const char* text) {
        std::string valid(text);
        if (!isValidUtf8(text)) internal::repairUtf8(text, std::strlen(text), valid);
        put(nlohmann::json(std::move(valid)).dump());
    }
    void putLineBreak() {
        if (!m_pretty) return;
        put("\n");
        for (int i = 0; i < m_depth; ++i) put("    ");
    }
    // False at the greatest depth, where null stands for the container.
    bool open(std::string_view bracket) {
        if (m_depth == Item::maximumDepth) {
            put("null");
            return false;
        }
        put(bracket);
        ++m_depth;
        m_empty = true;
        return true;
    }
    void next() {
        if (!m_empty) put(",");
        m_empty = false;
        putLineBreak();
    }
    void close(std::string_view bracket) {
        --m_depth;
        if (!m_empty) putLineBreak();
        m_empty = false;
        put(bracket);
    }
    void putSpecial(const char* name, const char* text) {
        if (!open("{")) return;
        next();
        putText(name);
        put(m_pretty ? ": " : ":");
        putText(text);
        close("}");
    }
    void putSpecialBytes(const char* name, const ConstByteSpan& bytes) {
        std::string text(static_cast<size_t>(internal::encodedBase64Size(bytes.getSize())), '\0');
        internal::encodeBase64(bytes.getBytePointer(), bytes.getSize(), text.data());
        putSpecial(name, text.c_str());
    }

    void writeArray(const Item& item) {
        if (!open("[")) return;
        for (Item::Iterator it = item.getIterator(); it.hasNextElement();) {
            next();
            writeValue(it);
        }
        close("]");
    }
    void writeTable(const Item& pairs) {
        if (!open("{")) return;
        for (Item::Iterator it = pairs.getIterator(); it.hasNextElement();) {
            next();
            putText(it.asWeakCStr());
            put(m_pretty ? ": " : ":");
            writeValue(it);
        }
        close("}");
    }
    void writeFloat(double number) {
        if (std::isnan(number)) {
            putSpecial("$float", "nan");
        } else if (std::isinf(number)) {
            putSpecial("$float", number < 0 ? "-inf" : "inf");
        } else {
            put(nlohmann::json(number).dump());
        }
    }
    // Values of two elements; false when the value here is one.
    bool writePair(Item::Iterator& it) {
        const unsigned size = it.getValueSize();
        if (size == it.getSize()) return false;
        const uint8_t* bytes = it.getItem()->getPlainBytePointer() + it.getOffset();
        Item pairs;
        const bool table = std::string_view(it.asWeakCStr()) == "table";
        if (table && it.asWeakSubItem(pairs) && isPlainTable(pairs)) {
            writeTable(pairs);
        } else {
            putSpecialBytes("$item", {bytes, size});
            if (!table) it.skip();
        }
        return true;
    }
    void writeValue(Item::Iterator& it) {
        if (writePair(it)) return;
        long long integer;
        double number;
        bool flag;
        GUID guid;
        Item nested;
        ConstByteSpan bytes;
        const ValueType type = it.getType();
        if (it.asInteger(integer)) {
            put(fmt::format_int(integer).c_str());
        } else if (it.asFloat(number)) {
            writeFloat(number);
        } else if (const char* text = it.asWeakCStr()) {
            if (type == ValueType::Prefix) {
                putSpecial("$prefix", text);
            } else {
                putText(text);
            }
        } else if (it.asBool(flag)) {
            put(flag ? "true" : "false");
        } else if (it.asWeakSubItem(nested)) {
            if (isDecodable(nested)) {
                writeArray(nested);
            } else {
                Item whole;
                whole.addItem(nested);
                putSpecialBytes("$item", whole.getConstByteSpan());
            }
        } else if (it.asWeakBytes(type, bytes)) {
            putSpecialBytes(type == ValueType::Buffer    ? "$buffer"
                            : type == ValueType::Pointer ? "$pointer"
                                                         : "$referee",
                            bytes);
        } else if (it.asGUID(guid)) {
            putSpecial("$guid", guid.toString().c_str());
        } else {
            writeMark(type);
            it.skip();
        }
    }
    void writeMark(ValueType type) {
        switch (type) {
        case ValueType::Meta:
            putSpecial("$mark", "meta");
            break;
        case ValueType::Wildcard:
            putSpecial("$mark", "wildcard");
            break;
        case ValueType::End:
            putSpecial("$mark", "end");
            break;
        default:
            put("null");
            break;
        }
    }

    const bool m_pretty;
    fmt::memory_buffer m_out;
    int m_depth = 0;
    bool m_empty = true; // nothing written yet in the innermost container
};

// ---- Reading.

// Receives the parser's events and builds items from the inside out; refuses what goes past the limits.
class JSONReader {
public:
    using Number = nlohmann::json;
    using Text = nlohmann::json::string_t;

    Item result;
    const char* reason = nullptr;
    size_t errorOffset = 0;

    bool null() { return value(Item(Item::NILType())); }
    bool boolean(bool flag) { return value(Item(flag)); }
    bool number_integer(Number::number_integer_t number) { return value(Item(number)); }
    bool number_unsigned(Number::number_unsigned_t number) {
        return number <= static_cast<uint64_t>(INT64_MAX) ? value(Item(number))
                                                          : value(Item(static_cast<double>(number)));
    }
    bool number_float(Number::number_float_t number, const Text&) { return value(Item(number)); }
    bool string(Text& text) { return isText(text) && value(Item(text.c_str())); }
    bool binary(Number::binary_t&) { return false; }
    bool start_object(size_t) { return open(true); }
    bool start_array(size_t) { return open(false); }
    bool key(Text& text) {
        if (!isText(text)) return false;
        m_open.back().names.push_back(text);
        return true;
    }
    bool end_array() {
        Item array;
        array.addItem(m_open.back().elements);
        m_open.pop_back();
        return value(std::move(array));
    }
    bool end_object() {
        Item object = tableOf(m_open.back());
        m_open.pop_back();
        return value(std::move(object));
    }
    bool parse_error(size_t position, const std::string&, const nlohmann::detail::exception& error) {
        errorOffset = position == 0 ? 0 : position - 1;
        reason = error.id == 406 ? "a number out of range" : "not JSON";
        return false;
    }

private:
    struct Container {
        bool isObject;
        Item elements;                  // of an array
        std::vector<std::string> names; // of an object, in the order of the text
        std::vector<Item> values;
    };

    static Item tableOf(Container& object) {
        Item out;
        if (object.names.size() == 1 && readSpecial(object.names[0], object.values[0], out)) return out;
        // Of members with one name the last gives the value, the first the place.
        std::unordered_map<std::string_view, size_t> last;
        for (size_t i = 0; i < object.names.size(); ++i) last[object.names[i]] = i;
        Item pairs;
        for (const std::string& name : object.names) {
            const auto found = last.find(name);
            if (found == last.end()) continue;
            pairs.addString(name.c_str());
            pairs.concatItem(object.values[found->second]);
            last.erase(found);
        }
        out.clear();
        out.addPrefix("table");
        out.addItem(pairs);
        return out;
    }
    bool isText(const Text& text) {
        if (text.find('\0') == Text::npos) return true;
        reason = "a zero character in a text";
        return false;
    }
    bool open(bool isObject) {
        if (m_open.size() == static_cast<size_t>(Item::maximumDepth)) {
            reason = "nested deeper than 128 levels";
            return false;
        }
        m_open.push_back({isObject, {}, {}, {}});
        return true;
    }
    bool value(Item&& item) {
        if (m_open.empty()) {
            result = std::move(item);
        } else if (m_open.back().isObject) {
            m_open.back().values.push_back(std::move(item));
        } else {
            m_open.back().elements.concatItem(item);
        }
        return true;
    }

    std::vector<Container> m_open;
};

// Hands the text to the parser and remembers how far it has read.
class TrackingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    TrackingIterator(const char* at, const char** furthest) : m_at(at), m_furthest(furthest) {}
    const char& operator*() const { return *m_at; }
    TrackingIterator& operator++() {
        *m_furthest = ++m_at;
        return *this;
    }
    TrackingIterator operator++(int) {
        const TrackingIterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator!=(const TrackingIterator& a, const TrackingIterator& b) { return a.m_at != b.m_at; }

private:
    const char* m_at;
    const char** m_furthest;
};

} // namespace

String Item::getJSON(bool pretty) const {
    JSONWriter writer(pretty);
    writer.writeItem(*this);
    return writer.take();
}

bool Item::setJSON(const String& text, TextError* error) {
    JSONReader reader;
    const char* read = text.data();
    bool ok = text.size() <= maximumTextSize;
    if (ok) {
        const TrackingIterator begin(text.data(), &read), end(text.data() + text.size(), &read);
        ok = nlohmann::json::sax_parse(begin, end, &reader);
    } else {
        reader.reason = "longer than 64 MiB";
    }
    if (ok) {
        setPlain(reader.result);
        return true;
    }
    if (reader.errorOffset == 0 && read != text.data())
        reader.errorOffset = static_cast<size_t>(read - text.data()) - 1;
    if (error) *error = {reader.errorOffset, reader.reason ? reader.reason : "not JSON"};
    return false;
}

} // namespace kiv
