// Items as JSON. Every value has its own JSON form, those that JSON lacks an object of one member named "$...".

#include "kiv/core/Codecs.h"
#include "kiv/core/Utf8.h"
#include "kiv/data/Item.h"
#include "kiv/data/JSONText.h"

#include <fmt/format.h>

#include <cmath>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kiv {

namespace {

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
    void putText(const char* text) { put(internal::toJSONText(text)); }
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
            put(internal::toJSONNumber(number));
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

// Builds items from the inside out.
class JSONReader final : public internal::JSONEvents {
public:
    Item result;

    bool null() override { return value(Item(Item::NILType())); }
    bool boolean(bool flag) override { return value(Item(flag)); }
    bool integer(int64_t number) override { return value(Item(number)); }
    bool floating(double number) override { return value(Item(number)); }
    bool text(std::string& text) override { return isText(text) && value(Item(text.c_str())); }
    bool key(std::string& name) override {
        if (!isText(name)) return false;
        m_open.back().names.push_back(std::move(name));
        return true;
    }
    bool open(bool isObject) override {
        m_open.push_back({isObject, {}, {}, {}});
        return true;
    }
    bool close(bool isObject) override {
        Item whole;
        if (isObject) {
            whole = tableOf(m_open.back());
        } else {
            whole.addItem(m_open.back().elements);
        }
        m_open.pop_back();
        return value(std::move(whole));
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
    bool isText(const std::string& text) {
        return text.find('\0') == std::string::npos || refuse("a zero character in a text");
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

} // namespace

String Item::getJSON(bool pretty) const {
    JSONWriter writer(pretty);
    writer.writeItem(*this);
    return writer.take();
}

bool Item::setJSON(const String& text, TextError* error) {
    JSONReader reader;
    TextError failure;
    if (internal::parseJSON(text, reader, failure)) {
        setPlain(reader.result);
        return true;
    }
    if (error) *error = failure;
    return false;
}

} // namespace kiv
