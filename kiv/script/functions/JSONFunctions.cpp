#include "kiv/core/Containers.h"
#include "kiv/data/JSONText.h"
#include "kiv/script/Libraries.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/TypeName.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace kivSq::internal {
namespace {

using kiv::Item;

// ---- Reading.

// Puts every value into its container as it comes: those that are open are held by handles, so that the depth of a text
// takes nothing from the engine's stack.
class Decoder final : public kiv::internal::JSONEvents {
public:
    explicit Decoder(SQVM* v) : m_vm(v) {}

    Object result;

    bool null() override {
        return add([this] { sq_pushnull(m_vm); });
    }
    bool boolean(bool flag) override {
        return add([&] { sq_pushbool(m_vm, flag ? SQTrue : SQFalse); });
    }
    bool integer(int64_t number) override {
        return add([&] { sq_pushinteger(m_vm, number); });
    }
    bool floating(double number) override {
        return add([&] { sq_pushfloat(m_vm, number); });
    }
    bool text(std::string& text) override {
        return add([&] { pushText(text); });
    }
    bool key(std::string& name) override {
        m_open.back().key = std::move(name);
        return true;
    }
    bool open(bool isObject) override {
        const StackGuard guard(m_vm);
        if (isObject) {
            sq_newtable(m_vm);
        } else {
            sq_newarray(m_vm, 0);
        }
        m_open.push_back({Object(m_vm, -1), {}});
        return true;
    }
    bool close(bool) override {
        const Object whole = std::move(m_open.back().value);
        m_open.pop_back();
        return add([&] { whole.push(m_vm); });
    }

private:
    struct Container {
        Object value;
        std::string key; // of the value to come
    };

    void pushText(const std::string& text) { sq_pushstring(m_vm, text.data(), static_cast<SQInteger>(text.size())); }
    template <class Push>
    bool add(Push push) {
        const StackGuard guard(m_vm);
        if (m_open.empty()) {
            push();
            result = Object(m_vm, -1);
            return true;
        }
        const Container& container = m_open.back();
        container.value.push(m_vm);
        if (container.value.isArray()) {
            push();
            sq_arrayappend(m_vm, -2);
        } else {
            pushText(container.key);
            push();
            sq_rawset(m_vm, -3);
        }
        return true;
    }

    SQVM* const m_vm;
    std::vector<Container> m_open;
};

Object decode(std::string_view text) {
    Decoder decoder(requireVM().getSquirrelVM());
    Item::TextError error;
    if (kiv::internal::parseJSON(text, decoder, error)) return decoder.result;
    throw std::runtime_error(fmt::format("invalid json: {} at byte {}", error.reason, error.offset));
}

// ---- Writing.

// No script code runs meanwhile, so the values stay what and where they are without handles.
class Encoder {
public:
    Encoder(SQVM* v, bool pretty) : m_vm(v), m_pretty(pretty) {}

    std::string encode(const HSQOBJECT& value) {
        write(value);
        return std::move(m_out);
    }

private:
    // A container that is being written, and what of it.
    struct Place {
        HSQOBJECT container;
        std::string step; // ".name", resp. "[3]"
    };
    struct Slot {
        std::string name;
        HSQOBJECT value;
    };

    void write(const HSQOBJECT& value) {
        switch (value._type) {
        case OT_NULL:
            put("null");
            break;
        case OT_BOOL:
            put(sq_objtobool(&value) ? "true" : "false");
            break;
        case OT_INTEGER:
            put(fmt::format_int(sq_objtointeger(&value)).c_str());
            break;
        case OT_FLOAT:
            writeFloat(sq_objtofloat(&value));
            break;
        case OT_STRING:
            put(kiv::internal::toJSONText(textOf(value)));
            break;
        case OT_ARRAY:
            open(value, '[');
            writeArray(value);
            close(']');
            break;
        case OT_TABLE:
            open(value, '{');
            writeTable(value);
            close('}');
            break;
        default:
            fail("is of type " + typeOf(value));
        }
    }

    void writeFloat(double number) {
        if (std::isfinite(number)) {
            put(kiv::internal::toJSONNumber(number));
        } else {
            put("null");
        }
    }

    void writeArray(const HSQOBJECT& array) {
        SQInteger size = 0;
        HSQOBJECT element;
        for (SQInteger i = 0; elementOf(array, i, element); size = ++i) {
            m_path.back().step = fmt::format("[{}]", i);
            next(i == 0);
            write(element);
        }
        endOf(size == 0);
    }

    // Leaves nothing on the engine's stack, which has not the room for a value of each level.
    bool elementOf(const HSQOBJECT& array, SQInteger index, HSQOBJECT& out) {
        const StackGuard guard(m_vm);
        sq_pushobject(m_vm, array);
        if (index >= sq_getsize(m_vm, -1)) return false;
        sq_pushinteger(m_vm, index);
        sq_rawget(m_vm, -2);
        out = handleAt(m_vm, -1);
        return true;
    }

    void writeTable(const HSQOBJECT& table) {
        const std::vector<Slot> slots = slotsOf(table);
        for (const Slot& slot : slots) {
            m_path.back().step = '.' + slot.name;
            // Several keys can come to the same name: integers and texts, texts that were repaired.
            if (&slot != slots.data() && (&slot)[-1].name == slot.name) fail("occurs twice");
            next(&slot == slots.data());
            put(kiv::internal::toJSONText(slot.name));
            put(m_pretty ? ": " : ":");
            write(slot.value);
        }
        endOf(slots.empty());
    }

    // In the order of their names, so that the same table always gives the same text.
    std::vector<Slot> slotsOf(const HSQOBJECT& table) {
        const StackGuard guard(m_vm);
        std::vector<Slot> slots;
        sq_pushobject(m_vm, table);
        sq_pushnull(m_vm);
        while (SQ_SUCCEEDED(sq_next(m_vm, -2))) {
            slots.push_back({nameOf(handleAt(m_vm, -2)), handleAt(m_vm, -1)});
            sq_pop(m_vm, 2);
        }
        std::sort(slots.begin(), slots.end(), [](const Slot& a, const Slot& b) { return a.name < b.name; });
        return slots;
    }

    std::string nameOf(const HSQOBJECT& key) {
        if (key._type == OT_STRING) return kiv::internal::repairWhole(textOf(key));
        if (key._type == OT_INTEGER) return fmt::format_int(sq_objtointeger(&key)).str();
        fail("has a key of type " + typeOf(key));
    }

    std::string_view textOf(const HSQOBJECT& text) {
        const StackGuard guard(m_vm);
        sq_pushobject(m_vm, text);
        std::string_view view;
        Access<std::string_view>::get(m_vm, -1, view);
        return view;
    }
    std::string typeOf(const HSQOBJECT& value) {
        const StackGuard guard(m_vm);
        sq_pushobject(m_vm, value);
        return typeNameAt(m_vm, -1);
    }

    void open(const HSQOBJECT& container, char bracket) {
        for (const Place& place : m_path)
            if (place.container._unVal.pRefCounted == container._unVal.pRefCounted) fail("is in itself");
        if (m_path.size() == static_cast<size_t>(Item::maximumDepth)) fail("is nested deeper than 128 levels");
        m_path.push_back({container, {}});
        put({&bracket, 1});
    }
    void close(char bracket) {
        m_path.pop_back();
        put({&bracket, 1});
    }
    void next(bool isFirst) {
        if (!isFirst) put(",");
        if (m_pretty) putLineBreak(m_path.size());
    }
    void endOf(bool isEmpty) {
        m_path.back().step.clear();
        if (m_pretty && !isEmpty) putLineBreak(m_path.size() - 1);
    }
    void putLineBreak(size_t depth) {
        put("\n");
        m_out.append(4 * depth, ' ');
    }
    // What holds the same value many times over can be large beyond all memory.
    void put(std::string_view text) {
        if (m_out.size() + text.size() > kiv::internal::maximumJSONSize) fail("makes it longer than 64 MiB");
        m_out += text;
    }

    [[noreturn]] void fail(const std::string& why) const {
        constexpr size_t mostPath = 200;
        std::string path = "value";
        for (const Place& place : m_path) path += place.step;
        if (path.size() > mostPath) path = path.substr(0, mostPath) + "...";
        throw std::runtime_error(fmt::format("no json: {} {}", path, why));
    }

    SQVM* const m_vm;
    const bool m_pretty;
    std::string m_out;
    std::vector<Place> m_path;
};

template <bool pretty>
std::string encode(const Object& value) {
    return Encoder(requireVM().getSquirrelVM(), pretty).encode(value.getHandle());
}

} // namespace

void addJSONFunctions(SQVM* v, const Object& table) {
    NativeTable(v, table)
        .carried("decode_json", &decode)
        .plain<&encode<false>>("encode_json")
        .plain<&encode<true>>("encode_json_pretty");
}

} // namespace kivSq::internal
