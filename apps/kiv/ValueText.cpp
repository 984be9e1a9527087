#include "ValueText.h"

#include "Text.h"

#include "kiv/core/String.h"
#include "kiv/script/Access.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/VM.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace kiv::app {

namespace {

using kivSq::Object;

constexpr unsigned mostLevels = 6;
constexpr size_t mostParts = 100;   // of one table or array
constexpr size_t mostValues = 1000; // of all
constexpr size_t longestText = 2000, longestTextInside = 200;

// A value, or a list of them between brackets.
struct Piece {
    std::string text;  // behind a key; of a list the opening bracket
    std::string close; // of a list only
    std::vector<Piece> parts;
    size_t size = 0; // in one line
};

std::string quoted(std::string_view text, size_t limit) {
    std::string shown = withoutControls(String(text.substr(0, limit)).utf8_fix().view());
    for (size_t i = 0; (i = shown.find('"', i)) != shown.npos; i += 2) shown.insert(i, 1, '\\');
    return '"' + shown + '"' + (text.size() > limit ? fmt::format("... ({} bytes)", text.size()) : "");
}

bool isIdentifier(std::string_view text) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
    return !text.empty() && isLetter(text[0]) &&
           std::all_of(text.begin(), text.end(), [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); });
}

std::string showFloat(double number) {
    const std::string text = fmt::format("{}", number);
    return text.find_first_of(".en") == text.npos ? text + ".0" : text;
}

// The slot of the root table, or of one of its tables, that holds the class.
std::string nameOfClass(const Object& wanted) {
    const Object root = kivSq::VM::current()->getRootTable();
    std::string name;
    const auto search = [&](const Object& table, const std::string& prefix) {
        for (const auto& [key, value] : table.asTable().getKeyValuePairs())
            if (std::string text; value.isSame(wanted) && key.to(text) && text != "_") name = prefix + text;
    };
    for (const auto& [key, value] : root.asTable().getKeyValuePairs())
        if (std::string text; value.isTable() && key.to(text)) search(value, text + '.');
    search(root, "");
    return name;
}

std::string showInstance(const Object& value) {
    SQVM* v = kivSq::VM::current()->getSquirrelVM();
    const kivSq::StackGuard guard(v);
    const std::string name = nameOfClass(value.asInstance().getClass());
    const std::string shown = "(" + (name.empty() ? "instance" : name);
    value.push(v);
    std::string text;
    if (SQ_FAILED(sq_tostring(v, -1)) || !Object(v, -1).to(text) || text.starts_with("(instance : "))
        return shown + ')';
    return shown + ": " + withoutControls(text) + ')';
}

std::string showFunction(const Object& value) {
    SQVM* v = kivSq::VM::current()->getSquirrelVM();
    const kivSq::StackGuard guard(v);
    value.push(v);
    std::string name;
    if (SQ_FAILED(sq_getclosurename(v, -1)) || !Object(v, -1).to(name)) return "(function)";
    return "(function " + name + ')';
}

std::string showPlain(const Object& value, size_t limit) {
    switch (value.getType()) {
    case OT_FLOAT:
        return showFloat(sq_objtofloat(&value.getHandle()));
    case OT_STRING: {
        std::string text;
        value.to(text);
        return quoted(text, limit);
    }
    case OT_INSTANCE:
        return showInstance(value);
    case OT_CLASS: {
        const std::string name = nameOfClass(value);
        return name.empty() ? "(class)" : "(class " + name + ')';
    }
    case OT_CLOSURE:
    case OT_NATIVECLOSURE:
        return showFunction(value);
    case OT_INTEGER:
    case OT_BOOL:
    case OT_NULL:
        return value.describe().to_std_string();
    default:
        return fmt::format("({})", value.getTypeName());
    }
}

class Collector {
public:
    Piece collect(const Object& value, unsigned level);

private:
    void collectArray(const Object& value, unsigned level, Piece& list);
    void collectTable(const Object& value, unsigned level, Piece& list);
    bool isFull(const Piece& list) const { return list.parts.size() >= mostParts || m_values >= mostValues; }

    size_t m_values = 0;
};

Piece plainPiece(std::string text) {
    Piece piece;
    piece.size = text.size();
    piece.text = std::move(text);
    return piece;
}

Piece Collector::collect(const Object& value, unsigned level) {
    ++m_values;
    const bool isArray = value.isArray();
    if (!isArray && !value.isTable()) return plainPiece(showPlain(value, level == 0 ? longestText : longestTextInside));
    Piece list;
    list.text = isArray ? "[" : "{";
    list.close = isArray ? "]" : "}";
    if (value.getSize() > 0 && level == mostLevels)
        list.parts.push_back(plainPiece("..."));
    else if (isArray)
        collectArray(value, level, list);
    else
        collectTable(value, level, list);
    list.size = 2;
    for (const Piece& part : list.parts) list.size += part.size + 2;
    return list;
}

void Collector::collectArray(const Object& value, unsigned level, Piece& list) {
    const int64_t size = value.getSize();
    for (int64_t i = 0; i < size; ++i) {
        if (isFull(list)) {
            list.parts.push_back(plainPiece(fmt::format("... ({} elements)", size)));
            return;
        }
        list.parts.push_back(collect(value.rawget(Object::from(i)), level + 1));
    }
}

// Numbers in front, in their order.
bool isBefore(const Object& a, const Object& b) {
    if (a.isInteger() && b.isInteger()) return sq_objtointeger(&a.getHandle()) < sq_objtointeger(&b.getHandle());
    std::string first, second;
    if (a.isString() && b.isString() && a.to(first) && b.to(second)) return first < second;
    return a.getType() < b.getType();
}

std::string showKey(const Object& key) {
    std::string text;
    if (key.isString() && key.to(text) && isIdentifier(text)) return text;
    return '[' + showPlain(key, longestTextInside) + ']';
}

void Collector::collectTable(const Object& value, unsigned level, Piece& list) {
    Vector<Pair<Object, Object>> slots = value.asTable().getKeyValuePairs();
    std::sort(slots.begin(), slots.end(), [](const auto& a, const auto& b) { return isBefore(a.first, b.first); });
    for (const auto& [key, slot] : slots) {
        if (isFull(list)) {
            list.parts.push_back(plainPiece(fmt::format("... ({} slots)", slots.size())));
            return;
        }
        Piece part = collect(slot, level + 1);
        const std::string front = showKey(key) + " = ";
        part.size += front.size();
        part.text.insert(0, front);
        list.parts.push_back(std::move(part));
    }
}

void writePiece(const Piece& piece, size_t indent, size_t columns, std::string& out);

// Below each other; what is plain, of an array, also beside each other.
void writeParts(const Piece& list, size_t indent, size_t columns, std::string& out) {
    const bool isFilled = list.close == "]" && std::all_of(list.parts.begin(), list.parts.end(),
                                                           [](const Piece& part) { return part.close.empty(); });
    size_t column = columns;
    for (size_t i = 0; i < list.parts.size(); ++i) {
        const Piece& part = list.parts[i];
        if (!isFilled || column + part.size + 2 > columns) {
            out += '\n' + std::string(indent, ' ');
            column = indent;
        } else {
            out += ' ';
        }
        writePiece(part, indent, columns, out);
        if (i + 1 < list.parts.size()) out += ',';
        column += part.size + 2;
    }
}

void writePiece(const Piece& piece, size_t indent, size_t columns, std::string& out) {
    out += piece.text;
    if (piece.close.empty()) return;
    if (indent + piece.size > columns) {
        writeParts(piece, indent + 4, columns, out);
        out += '\n' + std::string(indent, ' ');
    } else {
        for (const Piece& part : piece.parts) {
            if (&part != &piece.parts.front()) out += ", ";
            writePiece(part, 0, std::string::npos, out);
        }
    }
    out += piece.close;
}

} // namespace

std::string showValue(const Object& value, size_t columns) {
    std::string out;
    writePiece(Collector().collect(value, 0), 0, columns, out);
    return out;
}

} // namespace kiv::app
